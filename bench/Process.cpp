#include "bench/Process.h"

#include <charconv>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <fstream>
#include <poll.h>
#include <spawn.h>
#include <stdexcept>
#include <string_view>
#include <sys/wait.h>
#include <unistd.h>

namespace velmo::bench {

Process::Process(std::vector<std::string> words, Output output) {
    std::vector<char*> arguments;
    for (auto& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    FileDescriptor theirs;
    if (output == Output::here) {
        int ends[2];
        if (::pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
        output_ = FileDescriptor(ends[0]);
        theirs = FileDescriptor(ends[1]);
        posix_spawn_file_actions_adddup2(&actions, theirs.get(), STDOUT_FILENO);
    } else {
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    }
    const int error = posix_spawnp(&id_, arguments[0], &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) throw std::runtime_error("can't start " + words.front());
}

Process::~Process() {
    if (id_ < 0) return;
    ::kill(id_, SIGTERM);
    wait();
}

std::optional<std::string> Process::readLine(std::chrono::milliseconds patience) {
    for (;;) {
        if (const auto end = read_.find('\n'); end != std::string::npos) {
            std::string line = read_.substr(0, end);
            read_.erase(0, end + 1);
            return line;
        }
        pollfd readable{output_.get(), POLLIN, 0};
        char chunk[4096];
        if (::poll(&readable, 1, static_cast<int>(patience.count())) <= 0) return std::nullopt;
        const auto count = ::read(output_.get(), chunk, sizeof chunk);
        if (count <= 0) return std::nullopt;
        read_.append(chunk, static_cast<std::size_t>(count));
    }
}

int Process::wait() {
    int status = 0;
    ::waitpid(id_, &status, 0);
    id_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

void runProgram(std::vector<std::string> words) {
    const std::string command = fmt::format("{}", fmt::join(words, " "));
    if (Process(std::move(words)).wait() != 0) throw std::runtime_error("failed: " + command);
}

std::string outputOf(std::vector<std::string> words) {
    const std::string command = fmt::format("{}", fmt::join(words, " "));
    constexpr std::chrono::minutes patience{10};
    Process process(std::move(words), Process::Output::here);
    std::string output;
    while (const auto line = process.readLine(patience)) output += *line + '\n';
    if (process.wait() != 0) throw std::runtime_error("failed: " + command);
    return output;
}

// --- What the kernel tells ---------------------------------------------------------------------------------------

namespace {

/// The number behind "name:" in a file of lines.
std::int64_t numberIn(const std::filesystem::path& file, std::string_view name) {
    std::ifstream lines(file);
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with(name) && line.size() > name.size() && line[name.size()] == ':')
            return std::atoll(line.c_str() + name.size() + 1); // NOLINT(cert-err34-c): the kernel's own words
    }
    throw std::runtime_error(fmt::format("no {} in {}", name, file.string()));
}

std::filesystem::path kernelFiles(pid_t process) {
    return std::filesystem::path("/proc") / std::to_string(process);
}

}

MemoryUse memoryOf(pid_t process) {
    const auto files = kernelFiles(process);
    const auto megabytes = [&](const char* file, std::string_view name) {
        return static_cast<double>(numberIn(files / file, name)) * 1024 / 1e6;
    };
    return {megabytes("status", "VmRSS"), megabytes("status", "VmHWM"), megabytes("smaps_rollup", "Pss")};
}

Activity activityOf(pid_t process) {
    Activity activity;
    for (const auto& thread : std::filesystem::directory_iterator(kernelFiles(process) / "task")) {
        // The first number is its time on a processor in nanoseconds; the clock ticks of `stat` are too coarse.
        std::int64_t nanoseconds = 0;
        std::ifstream(thread.path() / "schedstat") >> nanoseconds;
        activity.processorMilliseconds += static_cast<double>(nanoseconds) / 1e6;
        activity.wakeUps += numberIn(thread.path() / "status", "voluntary_ctxt_switches");
    }
    return activity;
}

}
