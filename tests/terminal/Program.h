#pragma once

#include "support/Eventually.h"
#include "support/TemporaryDirectory.h"
#include "terminal/ConsoleStreams.h"

#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace velmo::test {

/// One of the built programs; it is killed when the test is through with it.
class Program {
  public:
    Program(const std::string& name, std::vector<std::string> words, const std::filesystem::path& input = "/dev/null") {
        words.insert(words.begin(), std::string(VELMO_PROGRAMS "/") + name);
        std::vector<char*> arguments;
        for (auto& word : words) arguments.push_back(word.data());
        arguments.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, 0, input.c_str(), O_RDONLY, 0);
        posix_spawn_file_actions_addopen(&actions, 1, out().c_str(), O_WRONLY | O_CREAT, 0600);
        posix_spawn_file_actions_addopen(&actions, 2, err().c_str(), O_WRONLY | O_CREAT, 0600);
        EXPECT_EQ(posix_spawn(&process_, arguments[0], &actions, nullptr, arguments.data(), environ), 0);
        posix_spawn_file_actions_destroy(&actions);
    }
    ~Program() {
        if (process_ <= 0) return;
        kill(process_, SIGKILL);
        waitpid(process_, nullptr, 0);
    }
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    void signal(int number) const { kill(process_, number); }

    /// Waits for its end.
    Outcome outcome() {
        int status = 0;
        EXPECT_TRUE(eventually([&] { return waitpid(process_, &status, WNOHANG) == process_; }));
        process_ = -1;
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, contentsOf(out()), contentsOf(err())};
    }

  private:
    std::filesystem::path out() const { return files_ / "out"; }
    std::filesystem::path err() const { return files_ / "err"; }

    TemporaryDirectory files_;
    pid_t process_ = -1;
};

inline Outcome velmo(std::vector<std::string> words, const std::filesystem::path& input = "/dev/null") {
    return Program("velmo", std::move(words), input).outcome();
}

}
