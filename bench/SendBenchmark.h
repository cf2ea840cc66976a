#pragma once

#include "bench/Benchmark.h"

#include <filesystem>
#include <vector>

namespace velmo::bench {

/// Sending: what dot-stuffing costs, and messages one by one through a server on this machine, against msmtp; and the
/// start of a full outbox.
std::vector<Row> benchSending(const std::filesystem::path& programs);

}
