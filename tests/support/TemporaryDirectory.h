#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace velmo::test {

/// A fresh directory of mode 0700 that goes, with all it holds, when the test ends.
class TemporaryDirectory {
  public:
    TemporaryDirectory();
    ~TemporaryDirectory();
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    const std::filesystem::path& path() const { return path_; }
    std::filesystem::path operator/(std::string_view name) const { return path_ / name; }

  private:
    std::filesystem::path path_;
};

/// The bytes of a file; empty when there is none.
std::string contentsOf(const std::filesystem::path& file);
void writeFile(const std::filesystem::path& file, std::string_view bytes);

/// A file below tests/, by its path there.
std::filesystem::path testFile(std::string_view name);

}
