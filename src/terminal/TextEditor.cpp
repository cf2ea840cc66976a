#include "terminal/TextEditor.h"

#include "base/Clock.h"
#include "base/Localisation.h"
#include "base/Text.h"
#include "platform/AtomicFile.h"
#include "platform/FileDescriptor.h"
#include "platform/FileError.h"
#include "terminal/Console.h"
#include "terminal/Readiness.h"

#include <array>
#include <boost/asio/this_coro.hpp>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

namespace velmo {

namespace fs = std::filesystem;

namespace {

/// For an editor that was asked to end.
constexpr Duration farewell{2'000};

[[noreturn]] void failAt(const fs::path& path) {
    throw FileError(path, {errno, std::generic_category()});
}

// --- The terminal ------------------------------------------------------------------------------------------------

/// The keys that interrupt go to all programs in the foreground; this one takes no notice as long as the object lives.
class InterruptsIgnored {
  public:
    InterruptsIgnored() {
        struct sigaction ignoring {};
        ignoring.sa_handler = SIG_IGN;
        for (std::size_t i = 0; i < signals.size(); ++i) sigaction(signals[i], &ignoring, &before_[i]);
    }
    ~InterruptsIgnored() {
        for (std::size_t i = 0; i < signals.size(); ++i) sigaction(signals[i], &before_[i], nullptr);
    }
    InterruptsIgnored(const InterruptsIgnored&) = delete;
    InterruptsIgnored& operator=(const InterruptsIgnored&) = delete;

    static constexpr std::array signals{SIGINT, SIGQUIT};

  private:
    std::array<struct sigaction, signals.size()> before_{};
};

/// Leaves the terminal as it was, whatever becomes of a program that draws on it.
class TerminalRestored {
  public:
    TerminalRestored() : isTerminal_(tcgetattr(STDIN_FILENO, &before_) == 0) {}
    ~TerminalRestored() {
        if (isTerminal_) tcsetattr(STDIN_FILENO, TCSADRAIN, &before_);
    }
    TerminalRestored(const TerminalRestored&) = delete;
    TerminalRestored& operator=(const TerminalRestored&) = delete;

  private:
    termios before_{};
    bool isTerminal_;
};

// --- The program -------------------------------------------------------------------------------------------------

bool isInstalled(const std::string& name) {
    const char* path = std::getenv("PATH");
    for (const auto folder : text::split(path == nullptr ? "/usr/bin:/bin" : path, ':'))
        if (access((fs::path(folder) / name).c_str(), X_OK) == 0) return true;
    return false;
}

/// A mail may hold lines that an editor takes for its settings.
std::string withoutModelines(const std::string& command) {
    const std::string name = command.substr(0, command.find(' '));
    const char* path = std::getenv("PATH");
    for (const auto folder : text::split(path == nullptr ? "/usr/bin:/bin" : path, ':')) {
        std::error_code missing;
        const auto program = fs::canonical(fs::path(folder) / name, missing).filename().string();
        if (missing) continue;
        const bool isVim = program.starts_with("vim") || program == "nvim";
        return isVim ? command + " --cmd 'set nomodeline'" : command;
    }
    return command;
}

/// What the shell is to run. A simple command takes the shell's own place, so that signals reach it; a shell that has
/// more to do outlives an interrupt, which its programs get as they like.
std::string shellWords(const std::string& command) {
    const bool isSimple = command.find_first_of("=;&|<>(){}`\n") == std::string::npos;
    return (isSimple ? "exec " + withoutModelines(command) : "trap : INT QUIT; " + command) + " \"$@\"";
}

/// Starts it with the streams of this process, and the signals as a program finds them. Throws EditorError.
pid_t start(const std::string& command, const fs::path& file) {
    std::array<std::string, 5> words{"sh", "-c", shellWords(command), "editor", file.string()};
    std::array<char*, words.size() + 1> arguments{};
    for (std::size_t i = 0; i < words.size(); ++i) arguments[i] = words[i].data();
    sigset_t none, usual;
    sigemptyset(&none);
    sigemptyset(&usual);
    for (const int signal : InterruptsIgnored::signals) sigaddset(&usual, signal);
    sigaddset(&usual, SIGPIPE);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setsigdefault(&attributes, &usual);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    pid_t process = -1;
    const int error = posix_spawn(&process, "/bin/sh", nullptr, &attributes, arguments.data(), environ);
    posix_spawnattr_destroy(&attributes);
    if (error != 0)
        throw EditorError(
            tr("The editor could not be started: {}.", std::error_code(error, std::generic_category()).message()));
    return process;
}

/// Waits for its end, and gives the status. A cancellation ends it.
Async<int> ended(pid_t process) {
    const FileDescriptor handle(static_cast<int>(syscall(SYS_pidfd_open, process, 0)));
    Readiness readiness(co_await boost::asio::this_coro::executor, handle.get());
    std::exception_ptr failure;
    try {
        co_await readiness.wait();
    } catch (...) {
        failure = std::current_exception();
    }
    if (failure) {
        co_await ignoreCancellation();
        kill(process, SIGTERM);
        SystemClock clock;
        const auto left = co_await within(clock, farewell, [&readiness] { return readiness.wait(); });
        if (!left) kill(process, SIGKILL);
    }
    int status = 0;
    while (waitpid(process, &status, 0) < 0 && errno == EINTR) {
    }
    if (failure) std::rethrow_exception(failure);
    co_return status;
}

Async<void> edit(const std::string& command, const fs::path& file) {
    const TerminalRestored terminal;
    const InterruptsIgnored interrupts;
    const pid_t process = start(command, file);
    const int status = co_await ended(process);
    if (WIFEXITED(status) && WEXITSTATUS(status) == 0) co_return;
    const std::string shown = printable(text::repairedUTF8(command));
    throw EditorError(WIFEXITED(status) ? tr("The editor ({}) ended with the error {}.", shown, WEXITSTATUS(status))
                                        : tr("The editor ({}) was ended by the signal {}.", shown, WTERMSIG(status)));
}

}

std::optional<std::string> editorCommand() {
    for (const char* name : {"VISUAL", "EDITOR"}) {
        const char* value = std::getenv(name);
        if (value != nullptr && !text::trimmed(value).empty()) return std::string(text::trimmed(value));
    }
    for (const char* name : {"editor", "nano", "vi"})
        if (isInstalled(name)) return name;
    return std::nullopt;
}

Async<std::string> editOnTerminal(const EditedFile& file) {
    const auto command = editorCommand();
    if (!command) throw EditorError(tr("There is no editor. Name one in the environment variable EDITOR."));
    co_await edit(*command, file.path());
    std::string saved = file.contents();
    if (saved.size() > longestEditedText) throw EditorError(tr("The text is too long."));
    saved = text::replacedAll(text::repairedUTF8(saved), "\r\n", "\n");
    while (saved.ends_with('\n')) saved.pop_back();
    co_return saved;
}

// --- The file ----------------------------------------------------------------------------------------------------

EditedFile::EditedFile(std::string_view text) : opened_(text.empty() ? std::string() : std::string(text) + "\n") {
    std::error_code ignored;
    fs::path parent = fs::temp_directory_path(ignored);
    if (parent.empty()) parent = "/tmp";
    std::string folder = parent / "velmo-XXXXXX";
    if (mkdtemp(folder.data()) == nullptr) failAt(folder);
    folder_ = folder;
    try {
        replaceFile(path(), opened_);
    } catch (...) {
        remove();
        throw;
    }
}

bool EditedFile::holdsWords() const {
    try {
        const Bytes present = contents();
        return present != opened_ && !text::trimmedUnicode(text::repairedUTF8(present)).empty();
    } catch (const FileError&) {
        return false;
    }
}

Bytes EditedFile::contents() const {
    const FileDescriptor descriptor(open(path().c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (!descriptor) failAt(path());
    Bytes bytes(longestEditedText + 1, '\0');
    std::size_t used = 0;
    while (used < bytes.size()) {
        const ssize_t count = read(descriptor.get(), bytes.data() + used, bytes.size() - used);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) failAt(path());
        if (count == 0) break;
        used += static_cast<std::size_t>(count);
    }
    bytes.resize(used);
    return bytes;
}

void EditedFile::remove() const {
    std::error_code ignored;
    fs::remove_all(folder_, ignored);
}

}
