#include "terminal/CommandConnection.h"

#include "base/Flag.h"
#include "base/Localisation.h"
#include "base/Task.h"
#include "base/UserError.h"
#include "terminal/CommandSocket.h"
#include "terminal/Failure.h"
#include "terminal/RemoteConsole.h"

#include <array>
#include <atomic>
#include <boost/asio/as_tuple.hpp>
#include <boost/asio/buffer.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <deque>
#include <mutex>

namespace velmo {

namespace asio = boost::asio;

namespace {

bool isAnswer(FrameType type, FrameType question) {
    return type == FrameType::answer || type == FrameType::noAnswer ||
           (type == FrameType::editFailed && question == FrameType::editText);
}

}

struct CommandConnection::State {
    State(FileDescriptor descriptor, const Executors& executors, Clock& clock_, const CommandHooks& hooks_)
        : main(executors.main),
          strand(makeStrand(executors.io)),
          clock(clock_),
          hooks(hooks_),
          socket(strand, asio::local::stream_protocol(), descriptor.release()) {}

    Executor main;
    Executor strand;
    Clock& clock;
    const CommandHooks& hooks;

    // On the strand. What the command leaves behind is written by it, and read after its end.
    asio::local::stream_protocol::socket socket;
    FrameReader reader{longestRequest};
    Task command;
    int exitCode = ExitCode::failed;
    bool wasInterrupted = false;
    std::string cancelReason;
    bool isTaken = false;
    bool isQuitting = false;
    bool hasEnded = false;
    std::deque<FrameType> questions;
    std::deque<Frame> answers;
    Flag answered{strand};
    Flag toWrite{strand};
    Flag drained{strand};

    std::atomic<bool> isGone = false;
    std::atomic<bool> isOverrun = false;
    std::mutex mutex; // guards what follows
    FrameQueue queue;
    std::size_t inFlight = 0;
};

CommandConnection::CommandConnection(FileDescriptor descriptor, const Executors& executors, Clock& clock,
                                     const CommandHooks& hooks)
    : state_(std::make_unique<State>(std::move(descriptor), executors, clock, hooks)) {}

CommandConnection::~CommandConnection() = default;

const Executor& CommandConnection::strand() const {
    return state_->strand;
}

// --- The exchange ------------------------------------------------------------------------------------------------

Async<void> CommandConnection::serve() {
    co_await converse();
    boost::system::error_code ignored;
    state_->socket.close(ignored);
}

Async<void> CommandConnection::converse() {
    if (!isOwnPeer(state_->socket.native_handle())) co_return;
    auto frame = co_await readRequest();
    if (!frame) co_return;
    if (frame->type == FrameType::activate) {
        auto activation = [self = shared_from_this()]() -> Async<void> {
            self->state_->hooks.activate();
            self->state_->exitCode = ExitCode::done;
            co_return;
        };
        co_await carryOut(std::move(activation));
    } else if (frame->type == FrameType::command) {
        auto request = CommandRequest::decoded(frame->payload);
        if (request) co_await serveCommand(*std::move(request));
    }
}

Async<void> CommandConnection::serveCommand(CommandRequest request) {
    const bool isAccepted = co_await callOn(state_->main, [&] { return state_->hooks.accepts(request); });
    if (state_->isQuitting) co_return;
    if (!isAccepted) {
        co_await decline();
        co_return;
    }
    auto command = [self = shared_from_this(), request = std::move(request)]() mutable {
        return self->runCommand(std::move(request));
    };
    co_await carryOut(std::move(command));
}

Async<void> CommandConnection::decline() {
    Bytes frame;
    appendFrame(frame, FrameType::declined, {});
    co_await writeAll(frame);
}

Async<void> CommandConnection::carryOut(std::move_only_function<Async<void>()> command) {
    state_->isTaken = true;
    enqueue(FrameType::taken, {});
    state_->command = Task(state_->main, std::move(command));
    auto answering = [this]() -> Async<void> {
        return both([this] { return writeFrames(); }, [this] { return awaitCommand(); });
    };
    co_await both([this] { return readAnswers(); }, answering);
}

/// A client that says nothing, or too slowly, is not waited for.
Async<std::optional<Frame>> CommandConnection::readRequest() {
    auto read = co_await within(state_->clock, patience, [this] { return readFrame(); });
    if (!read) co_return std::nullopt;
    co_return *std::move(read);
}

/// Absent when the client is gone, or sends what no client sends.
Async<std::optional<Frame>> CommandConnection::readFrame() {
    std::array<char, 4096> bytes{};
    for (;;) {
        if (auto frame = state_->reader.next()) co_return frame;
        if (state_->reader.isBroken()) co_return std::nullopt;
        const auto [error, count] =
            co_await state_->socket.async_read_some(asio::buffer(bytes), asio::as_tuple(asio::use_awaitable));
        if (error) co_return std::nullopt;
        state_->reader.append(BytesView(bytes.data(), count));
    }
}

// --- The command -------------------------------------------------------------------------------------------------

/// On the main executor.
Async<void> CommandConnection::runCommand(CommandRequest request) {
    RemoteConsole console(shared_from_this(), request.form);
    std::exception_ptr failure;
    try {
        state_->exitCode = co_await state_->hooks.run(std::move(request), console);
    } catch (...) {
        failure = std::current_exception();
    }
    console.progress({});
    if (isCancellation(failure))
        state_->wasInterrupted = true;
    else if (failure)
        state_->exitCode = tellFailure(failure, console);
}

Async<void> CommandConnection::awaitCommand() {
    co_await state_->command.finished();
    const std::string& reason = state_->cancelReason;
    if (!reason.empty() || state_->wasInterrupted) {
        enqueue(FrameType::error, (reason.empty() ? tr("Interrupted.") : reason) + "\n");
        state_->exitCode = ExitCode::failed;
    }
    enqueue(FrameType::end, std::to_string(state_->exitCode));
    state_->hasEnded = true;
    state_->toWrite.raise();
}

void CommandConnection::cancelCommand(std::string reason) {
    if (state_->cancelReason.empty()) state_->cancelReason = std::move(reason);
    state_->command.cancel();
}

void CommandConnection::quit() {
    asio::post(state_->strand, [self = shared_from_this()] {
        self->state_->isQuitting = true;
        boost::system::error_code ignored;
        if (self->state_->isTaken)
            self->cancelCommand(tr("Velmo-Mail has quit."));
        else
            self->state_->socket.close(ignored);
    });
}

// --- What the client says ----------------------------------------------------------------------------------------

Async<void> CommandConnection::readAnswers() {
    for (;;) {
        auto frame = co_await readFrame();
        if (!frame || state_->questions.empty() || !isAnswer(frame->type, state_->questions.front())) break;
        state_->questions.pop_front();
        state_->answers.push_back(*std::move(frame));
        state_->answered.raise();
    }
    clientGone();
}

Async<Frame> CommandConnection::ask(FrameType question, std::string prompt) {
    return runOn(state_->strand, [this, question, prompt = std::move(prompt)]() -> Async<Frame> {
        state_->questions.push_back(question);
        enqueue(question, prompt);
        while (state_->answers.empty() && !state_->isGone) {
            state_->answered.lower();
            co_await state_->answered.wait();
        }
        if (state_->answers.empty()) throw Cancelled();
        Frame answer = std::move(state_->answers.front());
        state_->answers.pop_front();
        co_return answer;
    });
}

void CommandConnection::clientGone() {
    if (state_->isGone.exchange(true)) return;
    {
        const std::scoped_lock lock(state_->mutex);
        state_->queue.clear();
        state_->inFlight = 0;
    }
    cancelCommand({});
    state_->answered.raise();
    state_->drained.raise();
}

void CommandConnection::close() {
    asio::post(state_->strand, [self = shared_from_this()] {
        self->clientGone();
        boost::system::error_code ignored;
        self->state_->socket.close(ignored);
    });
}

// --- What goes to the client -------------------------------------------------------------------------------------

void CommandConnection::send(FrameType type, BytesView payload) {
    if (state_->isOverrun) return;
    if (!isBehind(mostUnsent)) {
        enqueue(type, payload);
        return;
    }
    state_->isOverrun = true;
    asio::post(state_->strand, [self = shared_from_this()] {
        self->cancelCommand(tr("The output was not read, so the command was ended."));
    });
}

void CommandConnection::enqueue(FrameType type, BytesView payload) {
    {
        const std::scoped_lock lock(state_->mutex);
        if (state_->isGone) return;
        const bool wasEmpty = state_->queue.isEmpty();
        state_->queue.append(type, payload);
        if (!wasEmpty) return;
    }
    asio::post(state_->strand, [self = shared_from_this()] { self->state_->toWrite.raise(); });
}

bool CommandConnection::isBehind(std::size_t most) const {
    const std::scoped_lock lock(state_->mutex);
    return state_->queue.size() + state_->inFlight > most;
}

Async<void> CommandConnection::caughtUp() {
    return runOn(state_->strand, [this]() -> Async<void> {
        while (isBehind() && !state_->isGone) {
            state_->drained.lower();
            co_await state_->drained.wait();
        }
        if (state_->isGone) throw Cancelled();
    });
}

/// Until the command has ended, and what it wrote is sent or nobody is there to take it.
Async<void> CommandConnection::writeFrames() {
    for (;;) {
        state_->toWrite.lower();
        Bytes bytes;
        {
            const std::scoped_lock lock(state_->mutex);
            bytes = state_->queue.take();
            state_->inFlight = bytes.size();
        }
        if (!bytes.empty())
            co_await writeAll(bytes);
        else if (state_->hasEnded)
            break;
        else
            co_await state_->toWrite.wait();
    }
    boost::system::error_code ignored;
    state_->socket.shutdown(asio::socket_base::shutdown_both, ignored);
}

Async<void> CommandConnection::writeAll(BytesView bytes) {
    while (!bytes.empty() && !state_->isGone) {
        const auto [error, count] =
            co_await state_->socket.async_write_some(asio::buffer(bytes), asio::as_tuple(asio::use_awaitable));
        if (error) clientGone();
        bytes.remove_prefix(count);
        {
            const std::scoped_lock lock(state_->mutex);
            state_->inFlight = state_->isGone ? 0 : bytes.size();
        }
        if (!isBehind()) state_->drained.raise();
    }
}

}
