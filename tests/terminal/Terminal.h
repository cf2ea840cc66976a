#pragma once

#include "support/Eventually.h"

#include <cstdlib>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <map>
#include <poll.h>
#include <pty.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace velmo::test {

/// `velmo` on a terminal of its own; it is killed when the test is through with it.
class Terminal {
  public:
    Terminal(std::vector<std::string> words, const std::string& editor) {
        words.insert(words.begin(), VELMO_PROGRAMS "/velmo");
        std::vector<char*> arguments;
        for (auto& word : words) arguments.push_back(word.data());
        arguments.push_back(nullptr);
        process_ = forkpty(&terminal_, nullptr, nullptr, nullptr);
        if (process_ == 0) {
            setenv("EDITOR", editor.c_str(), 1);
            unsetenv("VISUAL");
            execv(arguments[0], arguments.data());
            _exit(126);
        }
        EXPECT_GT(process_, 0);
    }
    ~Terminal() {
        if (process_ > 0) {
            kill(process_, SIGKILL);
            waitpid(process_, nullptr, 0);
        }
        close(terminal_);
    }
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    void signal(int number) const { kill(process_, number); }

    void type(std::string_view keys) const {
        EXPECT_EQ(write(terminal_, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
    }

    /// Waits until that is on the terminal.
    bool shows(std::string_view text) {
        return eventually([&] {
            read();
            return seen_.find(text) != std::string::npos;
        });
    }

    /// Everything that was on the terminal.
    const std::string& seen() const { return seen_; }

    /// Waits for its end; -1 when a signal ended it.
    int exitCode() {
        int status = 0;
        EXPECT_TRUE(eventually([&] {
            read();
            return waitpid(process_, &status, WNOHANG) == process_;
        }));
        process_ = -1;
        read();
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

  private:
    void read() {
        pollfd ready{terminal_, POLLIN, 0};
        while (poll(&ready, 1, 1) == 1 && (ready.revents & POLLIN) != 0) {
            char bytes[4096];
            const ssize_t count = ::read(terminal_, bytes, sizeof bytes);
            if (count <= 0) return;
            seen_.append(bytes, static_cast<std::size_t>(count));
        }
    }

    pid_t process_ = -1;
    int terminal_ = -1;
    std::string seen_;
};

}
