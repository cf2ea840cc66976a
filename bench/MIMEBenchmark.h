#pragma once

#include "Benchmark.h"

#include <filesystem>
#include <vector>

namespace velmo::bench {

/// Reads every message of a folder tree (a Maildir, or .eml files) both ways: taking it apart, all texts to UTF-8, all
/// attachments to bytes, sender and subject to text. In megabytes of message a second.
std::vector<Row> benchMIME(const std::filesystem::path& corpusDirectory);

}
