#pragma once

#include "bench/Benchmark.h"

#include <filesystem>
#include <string>
#include <vector>

namespace velmo::bench {

/// Passes against a real server beside a bare client that sends the very same commands, and the memory of a large one.
/// The executable in `programs` starts itself again to measure its memory.
std::vector<Row> benchSync(const std::filesystem::path& programs);

/// The work of that second process: mirrors the whole inbox, then passes over it once more. Prints the peak of its
/// resident memory in MB on standard output.
int measureMemory(const std::vector<std::string>& words);

}
