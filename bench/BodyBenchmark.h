#pragma once

#include "bench/Benchmark.h"

#include <filesystem>
#include <vector>

namespace velmo::bench {

/// From nothing to every body on disk and searchable: the built `velmo` in `programs` against mbsync followed by
/// notmuch, with the same mailbox of 10,000 messages on the same server.
std::vector<Row> benchBodies(const std::filesystem::path& programs);

}
