#pragma once

#include "platform/Keychain.h"

#include <filesystem>
#include <functional>
#include <nlohmann/json_fwd.hpp>

namespace velmo {

/// Secrets in one file of mode 0600, in a directory of mode 0700, for where there is no keyring.
///
/// A file or directory that is a symbolic link, belongs to another user, or can be read by others is not touched: every
/// operation then gives a sentence that says so. Several processes may use one file.
class FileKeychain final : public Keychain {
  public:
    /// Nothing need exist; the first `add` makes the file and its directory.
    explicit FileKeychain(std::filesystem::path file);

    Found find(std::string_view service, std::string_view account) override;
    Done add(std::string_view service, std::string_view account, std::string_view secret) override;
    Done remove(std::string_view service, std::string_view account) override;

    /// True when there is a file.
    bool exists() const;
    const std::filesystem::path& file() const { return file_; }

  private:
    Done change(const std::function<void(nlohmann::json&)>& edit);

    std::filesystem::path file_;
};

}
