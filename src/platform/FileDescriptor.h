#pragma once

#include <unistd.h>
#include <utility>

namespace velmo {

/// Owns an open file descriptor; closes it when it goes.
class FileDescriptor {
  public:
    FileDescriptor() = default;
    explicit FileDescriptor(int number) : number_(number) {}
    FileDescriptor(FileDescriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        std::swap(number_, other.number_);
        return *this;
    }
    ~FileDescriptor() {
        if (number_ >= 0) ::close(number_);
    }

    int get() const { return number_; }
    /// Hands the descriptor over to someone else, who closes it.
    int release() { return std::exchange(number_, -1); }
    explicit operator bool() const { return number_ >= 0; }

  private:
    int number_ = -1;
};

}
