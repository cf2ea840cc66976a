#pragma once

#include "bench/Benchmark.h"

#include <vector>

namespace velmo::bench {

/// Sending: what dot-stuffing costs, and messages one by one through a server on this machine, against msmtp.
std::vector<Row> benchSending();

}
