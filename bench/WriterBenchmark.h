#pragma once

#include "bench/Benchmark.h"

#include <vector>

namespace velmo::bench {

/// Ten thousand new messages in one delta, against the same rows through a bare prepared statement.
std::vector<Row> benchWriter();

}
