#pragma once

#include "bench/Benchmark.h"

#include <vector>

namespace velmo::bench {

/// How long the slowest one in a hundred pages of a large list takes: of the inboxes of five accounts together, and of
/// a search.
std::vector<Row> benchLists();

}
