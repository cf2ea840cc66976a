#pragma once

#include "bench/Benchmark.h"

#include <vector>

namespace velmo::bench {

/// Building messages, against base64 of the TLS library and against one copy of the bytes.
std::vector<Row> benchOutgoing();

}
