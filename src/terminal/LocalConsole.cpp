#include "terminal/LocalConsole.h"

#include "base/Localisation.h"
#include "base/UserError.h"
#include "platform/FileDescriptor.h"
#include "terminal/Readiness.h"

#include <algorithm>
#include <boost/asio/this_coro.hpp>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

namespace velmo {

namespace {

constexpr std::size_t longestLine = 1 << 20;

bool isTerminal(std::FILE* stream) {
    return isatty(fileno(stream)) == 1;
}

ConsoleForm formOf(std::FILE* out, std::FILE* err) {
    ConsoleForm form;
    form.inIsTerminal = isatty(STDIN_FILENO) == 1;
    form.outIsTerminal = isTerminal(out);
    form.errIsTerminal = isTerminal(err);
    form.hasColour = form.outIsTerminal && std::getenv("NO_COLOR") == nullptr;
    return form;
}

/// Turns the echo of a terminal off for as long as it lives.
class EchoOff {
  public:
    explicit EchoOff(int descriptor) : descriptor_(descriptor) {
        if (tcgetattr(descriptor_, &before_) != 0) return;
        termios silent = before_;
        silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        silent.c_lflag |= ECHONL;
        changed_ = tcsetattr(descriptor_, TCSAFLUSH, &silent) == 0;
    }
    ~EchoOff() {
        if (changed_) tcsetattr(descriptor_, TCSAFLUSH, &before_);
    }
    EchoOff(const EchoOff&) = delete;
    EchoOff& operator=(const EchoOff&) = delete;

  private:
    int descriptor_;
    termios before_{};
    bool changed_ = false;
};

/// Reads up to a line feed, which is dropped; absent when the end comes first and nothing was read.
Async<std::optional<std::string>> readLine(int descriptor) {
    const Executor executor = co_await boost::asio::this_coro::executor;
    Readiness readiness(executor, descriptor);
    std::string text;
    while (text.size() < longestLine) {
        co_await readiness.wait();
        char c = 0;
        const ssize_t count = read(descriptor, &c, 1);
        if (count < 0 && (errno == EINTR || errno == EAGAIN)) continue;
        if (count <= 0) co_return text.empty() ? std::nullopt : std::optional(text);
        if (c == '\n') break;
        text += c;
    }
    co_return text;
}

}

LocalConsole::LocalConsole(std::FILE* out, std::FILE* err) : Console(formOf(out, err)), out_(out), err_(err) {}

void LocalConsole::write(Stream stream, BytesView bytes) {
    if (stream == Stream::error) flush();
    // An empty view may point nowhere, which the C library does not take.
    if (!bytes.empty()) std::fwrite(bytes.data(), 1, bytes.size(), stream == Stream::out ? out_ : err_);
    noticeReader();
}

void LocalConsole::flush() {
    std::fflush(out_);
    noticeReader();
}

void LocalConsole::noticeReader() {
    if (isReaderGone_ || std::ferror(out_) == 0) return;
    isReaderGone_ = true;
    writeError_ = errno;
    if (readerGone_) readerGone_();
}

std::optional<std::string> LocalConsole::writeTrouble() const {
    if (!isReaderGone_ || writeError_ == EPIPE) return std::nullopt;
    return tr("Standard output could not be written: {}.",
              std::error_code(writeError_, std::generic_category()).message());
}

void LocalConsole::showProgress(std::string_view text) {
    std::fputs("\r\033[K", err_);
    const auto cut = fitted(text, std::min(width() - 1, columns(text)));
    if (!cut.empty()) std::fwrite(cut.data(), 1, cut.size(), err_);
    std::fflush(err_);
}

std::size_t LocalConsole::width() const {
    winsize size{};
    for (std::FILE* stream : {out_, err_})
        if (ioctl(fileno(stream), TIOCGWINSZ, &size) == 0 && size.ws_col >= 20) return size.ws_col;
    return Console::width();
}

Async<void> LocalConsole::caughtUp() {
    flush();
    if (isReaderGone_) throw Cancelled();
    co_return;
}

Async<std::optional<std::string>> LocalConsole::askSecret(std::string prompt) {
    const FileDescriptor terminal(open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC));
    if (!terminal) co_return std::nullopt;
    flush();
    const EchoOff silent(terminal.get());
    if (::write(terminal.get(), prompt.data(), prompt.size()) < 0) co_return std::nullopt;
    co_return co_await readLine(terminal.get());
}

Async<std::optional<std::string>> LocalConsole::readLineFromInput() {
    return readLine(STDIN_FILENO);
}

Async<std::string> LocalConsole::edited(std::string text) {
    flush();
    const EditedFile file = edited_.emplace_back(text);
    co_return co_await editOnTerminal(file);
}

void LocalConsole::editedTextIsSafe() {
    for (const auto& file : edited_) file.remove();
    edited_.clear();
}

void LocalConsole::tellEditedFiles() {
    std::erase_if(edited_, [](const EditedFile& file) {
        const bool isIdle = !file.holdsWords();
        if (isIdle) file.remove();
        return isIdle;
    });
    for (const auto& file : edited_) note(tr("What you wrote is kept in {}.", file.path().string()));
}

}
