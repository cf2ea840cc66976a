#pragma once

#include "platform/FileDescriptor.h"

#include <filesystem>
#include <optional>
#include <utility>

namespace velmo {

/// Holds an exclusive advisory lock (flock) on a file made for it, against threads and processes alike.
/// The lock ends with the object, and with the process.
class FileLock {
  public:
    /// Waits for the lock. Throws FileError.
    explicit FileLock(const std::filesystem::path& file);

    /// The lock if nobody else holds it now. Throws FileError.
    static std::optional<FileLock> tryLock(const std::filesystem::path& file);

  private:
    explicit FileLock(FileDescriptor descriptor) : descriptor_(std::move(descriptor)) {}

    FileDescriptor descriptor_;
};

}
