#include "terminal/CommandClient.h"

#include "base/Localisation.h"
#include "base/Text.h"
#include "terminal/CommandSocket.h"
#include "terminal/Failure.h"
#include "terminal/Frames.h"
#include "terminal/TextEditor.h"

#include <array>
#include <boost/asio/as_tuple.hpp>
#include <boost/asio/buffer.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/asio/this_coro.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <boost/asio/write.hpp>
#include <sys/socket.h>

namespace velmo {

namespace asio = boost::asio;

namespace {

/// For the application to take a request; it does so without regard to what else it has to do.
constexpr Duration patience{10'000};
constexpr Duration look{50};

/// The longest frame that the application sends holds a prompt, a text to edit, or a part of a stream.
constexpr std::size_t longestPayload = 1 << 20;

/// The connection to the application.
class RunningApplication {
  public:
    RunningApplication(const Executor& executor, FileDescriptor descriptor)
        : socket_(executor, asio::local::stream_protocol(), descriptor.release()) {}

    Async<bool> send(FrameType type, Bytes payload) {
        Bytes frame;
        appendFrame(frame, type, payload);
        const auto [error, count] =
            co_await asio::async_write(socket_, asio::buffer(frame), asio::as_tuple(asio::use_awaitable));
        co_await checkCancellation();
        co_return !error;
    }

    /// Absent at the end.
    Async<std::optional<Frame>> receive() {
        for (;;) {
            if (auto frame = reader_.next()) co_return frame;
            if (reader_.isBroken()) co_return std::nullopt;
            const auto [error, count] =
                co_await socket_.async_read_some(asio::buffer(bytes_), asio::as_tuple(asio::use_awaitable));
            co_await checkCancellation();
            if (error) co_return std::nullopt;
            reader_.append(BytesView(bytes_.data(), count));
        }
    }

    /// Something that was not received yet has come, or the end: then nobody waits for an answer any more.
    bool hasMore() {
        char c = 0;
        return recv(socket_.native_handle(), &c, 1, MSG_PEEK | MSG_DONTWAIT) >= 0;
    }

  private:
    asio::local::stream_protocol::socket socket_;
    FrameReader reader_{longestPayload};
    std::array<char, 1 << 16> bytes_{};
};

/// Absent when nobody listens, or listens and takes nobody in for long.
Async<std::unique_ptr<RunningApplication>> connected(std::filesystem::path path, Clock& clock) {
    const Instant limit = clock.instant() + patience;
    const Executor executor = co_await asio::this_coro::executor;
    for (;;) {
        auto descriptor = connectTo(path);
        if (descriptor) {
            if (!isOwnPeer(descriptor->get())) co_return nullptr;
            co_return std::make_unique<RunningApplication>(executor, *std::move(descriptor));
        }
        if (descriptor.error() != std::errc::resource_unavailable_try_again || clock.instant() >= limit)
            co_return nullptr;
        co_await clock.wait(look);
    }
}

Async<bool> isTaken(RunningApplication& application, FrameType type, Bytes payload, Clock& clock) {
    auto ask = [&]() -> Async<bool> {
        if (!co_await application.send(type, std::move(payload))) co_return false;
        const auto frame = co_await application.receive();
        co_return frame && frame->type == FrameType::taken;
    };
    const auto taken = co_await within(clock, patience, ask);
    co_return taken.value_or(false);
}

Async<void> answer(RunningApplication& application, FrameType question, std::string prompt, LocalConsole& console) {
    std::optional<std::string> text;
    if (question == FrameType::askSecret)
        text = co_await console.askSecret(std::move(prompt));
    else
        text = co_await console.readLineFromInput();
    const FrameType type = text ? FrameType::answer : FrameType::noAnswer;
    co_await application.send(type, std::move(text).value_or(Bytes()));
}

/// It may be hours until the person has written, and the application gone by then.
Async<void> answerEdited(RunningApplication& application, std::string prompt, LocalConsole& console) {
    std::string text, trouble;
    try {
        text = co_await console.editText(std::move(prompt));
    } catch (const UserError& error) {
        trouble = error.sentence();
    }
    if (!trouble.empty()) {
        co_await application.send(FrameType::editFailed, std::move(trouble));
        co_return;
    }
    if (!application.hasMore()) co_await application.send(FrameType::answer, text);
}

/// Until the end of the command; gives its exit code.
Async<int> follow(RunningApplication& application, LocalConsole& console) {
    for (;;) {
        auto frame = co_await application.receive();
        if (!frame) break;
        switch (frame->type) {
        case FrameType::output:
            console.write(Console::Stream::out, frame->payload);
            console.flush();
            break;
        case FrameType::error: console.write(Console::Stream::error, frame->payload); break;
        case FrameType::progress: console.progress(frame->payload); break;
        case FrameType::textIsSafe: console.editedTextIsSafe(); break;
        case FrameType::askSecret:
        case FrameType::askLine: co_await answer(application, frame->type, std::move(frame->payload), console); break;
        case FrameType::editText: co_await answerEdited(application, std::move(frame->payload), console); break;
        case FrameType::end: {
            const auto code = text::parseUnsigned32(frame->payload);
            co_return code ? static_cast<int>(*code & 0xFF) : ExitCode::failed;
        }
        default: break;
        }
    }
    console.note(tr("Velmo-Mail ended before the command did."));
    co_return ExitCode::failed;
}

}

Async<std::optional<int>> handOver(std::filesystem::path socket, CommandRequest request, LocalConsole& console,
                                   Clock& clock) {
    const auto application = co_await connected(std::move(socket), clock);
    if (!application) co_return std::nullopt;
    const bool taken = co_await isTaken(*application, FrameType::command, request.encoded(), clock);
    if (!taken) co_return std::nullopt;
    co_return co_await follow(*application, console);
}

Async<bool> activateRunning(std::filesystem::path socket, Clock& clock) {
    const auto application = co_await connected(std::move(socket), clock);
    if (!application) co_return false;
    const bool taken = co_await isTaken(*application, FrameType::activate, Bytes(), clock);
    if (!taken) co_return false;
    const auto end = co_await application->receive();
    co_return end && end->type == FrameType::end && end->payload == "0";
}

}
