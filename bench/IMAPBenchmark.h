#pragma once

#include "bench/Benchmark.h"

#include <vector>

namespace velmo::bench {

/// Reading FETCH responses, against one copy of the same bytes.
std::vector<Row> benchIMAP();

}
