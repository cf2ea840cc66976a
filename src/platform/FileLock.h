#pragma once

#include "platform/FileDescriptor.h"

#include <filesystem>

namespace velmo {

/// Holds an exclusive advisory lock (flock) on a file made for it, against threads and processes alike; waits for it.
/// The lock ends with the object, and with the process. Throws FileError.
class FileLock {
  public:
    explicit FileLock(const std::filesystem::path& file);

  private:
    FileDescriptor descriptor_;
};

}
