#pragma once

#include "base/UserError.h"

#include <filesystem>
#include <system_error>

namespace velmo {

/// A file or directory could not be read, written or made. The sentence names it and the system's reason.
class FileError final : public UserError {
  public:
    FileError(std::filesystem::path path, std::error_code reason);

    const std::filesystem::path& path() const { return path_; }
    std::error_code reason() const { return reason_; }

    friend bool operator==(const FileError& a, const FileError& b) {
        return a.path_ == b.path_ && a.reason_ == b.reason_;
    }

  private:
    std::filesystem::path path_;
    std::error_code reason_;
};

}
