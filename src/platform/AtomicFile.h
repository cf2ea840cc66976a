#pragma once

#include "base/Bytes.h"
#include "platform/FileDescriptor.h"

#include <filesystem>
#include <optional>
#include <sys/types.h>

namespace velmo {

/// Replaces the contents of `file`: after a crash at any moment it holds the old bytes or the new ones, whole.
///
/// The bytes are written beside it, flushed to the disk and renamed; then the directory is flushed. The file has
/// exactly `mode`, whatever the umask. A symbolic link at `file` is replaced, not followed. Throws FileError, and then
/// the old file stands. Any thread; of two writers at once the last one wins.
void replaceFile(const std::filesystem::path& file, BytesView bytes, mode_t mode = 0600);

/// The contents; absent when there is no such file. Throws FileError.
std::optional<Bytes> readFile(const std::filesystem::path& file);

/// The rest of an open file, whose name goes into the FileError.
Bytes readWhole(const FileDescriptor& descriptor, const std::filesystem::path& file);

}
