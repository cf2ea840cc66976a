#pragma once

#include "platform/FileDescriptor.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace velmo::bench {

/// A program in a process of its own, found by its path or in PATH. It is asked to end (SIGTERM) and waited for with
/// this object. Throws std::runtime_error when it can't be started.
class Process {
  public:
    /// Where its standard output goes; what it notes on standard error is dropped.
    enum class Output { nowhere, here };

    explicit Process(std::vector<std::string> words, Output output = Output::nowhere);
    ~Process();
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    /// The next line of its output; absent when none has come for so long, or there is no more.
    std::optional<std::string> readLine(std::chrono::milliseconds patience);

    /// Waits for its end; gives the exit code, -1 after a signal.
    int wait();

    pid_t id() const { return id_; }

  private:
    pid_t id_ = -1;
    FileDescriptor output_;
    std::string read_;
};

/// Runs a program to its end; throws std::runtime_error when it fails.
void runProgram(std::vector<std::string> words);

/// Its standard output as well.
std::string outputOf(std::vector<std::string> words);

/// In MB, as the kernel tells it of a process.
struct MemoryUse {
    double resident = 0;
    double peak = 0;         ///< of the resident memory
    double proportional = 0; ///< with a fair share of what it shares with others
};
MemoryUse memoryOf(pid_t process);

/// What a process has done since it began.
struct Activity {
    double processorMilliseconds = 0;
    std::int64_t wakeUps = 0; ///< how often its threads had waited for something
};
Activity activityOf(pid_t process);

}
