#pragma once

#include "bench/Benchmark.h"

#include <vector>

namespace velmo::bench {

/// Reads every message of a generated corpus both ways, here and with GMime: taking it apart, all texts to UTF-8, all
/// attachments to bytes, sender and subject to text. In megabytes of message a second.
std::vector<Row> benchMIME();

}
