#pragma once

#include "base/Bytes.h"

#include <vector>

namespace velmo {

/// A text that may hold uuencoded files (POSIX uuencode, historical algorithm).
struct UUEncodedText {
    struct File {
        Bytes name; ///< as it stands
        Bytes data;
    };

    Bytes rest; ///< the text without them
    std::vector<File> files;
};

/// Takes out each file that runs from its "begin" to its "end". What is cut off, or holds a line that is none, stays in
/// the text. Never fails; linear in the text.
UUEncodedText takeUUEncodedFiles(BytesView text);

}
