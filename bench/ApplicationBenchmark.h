#pragma once

#include "bench/Benchmark.h"

#include <filesystem>
#include <vector>

namespace velmo::bench {

// The built application as a process. `programs` is where it and `velmo` lie.

/// With 1,000,000 messages of five accounts: from its start to the first list that it hands over, and its memory then.
std::vector<Row> benchStart(const std::filesystem::path& programs);

/// What three accounts cost that wait for the server's word, over a minute or as many seconds as VELMO_IDLE_SECONDS
/// tells.
std::vector<Row> benchIdle(const std::filesystem::path& programs);

/// From a message's arrival on the server, which another client put there, until `velmo watch` prints it.
std::vector<Row> benchArrival(const std::filesystem::path& programs);

}
