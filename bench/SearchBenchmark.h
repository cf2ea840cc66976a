#pragma once

#include "bench/Benchmark.h"

#include <filesystem>
#include <vector>

namespace velmo::bench {

/// The newest 50 of 200,000 messages that hold one to three words in their head or body: the built `velmo search`
/// against `notmuch search`, both as processes and in turns; and what the search takes without a process around it.
/// `programs` is where the built ones lie.
std::vector<Row> benchSearch(const std::filesystem::path& programs);

}
