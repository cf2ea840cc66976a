#pragma once

#include "app/Application.h"
#include "base/Runtime.h"
#include "support/EnvironmentGuard.h"
#include "support/TemporaryDirectory.h"

#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace velmo::test {
class MailServers;
}

namespace velmo::bench {

/// An installation of its own below a directory that goes with it; the programs that are started meanwhile find it.
class Home {
  public:
    /// `programs` is where the built ones lie.
    explicit Home(std::filesystem::path programs) : programs_(std::move(programs)) {}

    std::filesystem::path operator/(std::string_view name) const { return directory_ / name; }

    /// Adds accounts whose servers refuse; gives their ids.
    std::vector<UUID> addAccounts(int count);

    /// Adds an account of this person at the servers, without asking them; `user` is "ALICE" or "BOB".
    void addAccount(const test::MailServers& servers, const std::string& user);

    /// Runs `work` in this process, with the mail open.
    void use(const std::function<void(Runtime&, Application&)>& work);

    /// The words that start one of the programs, `velmo` or `velmo-mail`.
    std::vector<std::string> call(const std::string& program, std::vector<std::string> words = {}) const;

  private:
    void add(const MailAccount& account, const std::string& secret);

    std::filesystem::path programs_;
    test::TemporaryDirectory directory_;
    test::EnvironmentGuard home_{"VELMO_HOME", directory_.path().string()};
};

}
