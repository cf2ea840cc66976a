#pragma once

#include "base/Bytes.h"

#include <span>
#include <string_view>

namespace velmo {

/// A file of the folder samples/, as it was when the program was built.
struct SampleMailFile {
    std::string_view name; ///< "welcome.eml"
    BytesView source;
};

/// Sorted by name.
std::span<const SampleMailFile> sampleMailFiles();

}
