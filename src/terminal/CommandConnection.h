#pragma once

#include "base/Async.h"
#include "base/Clock.h"
#include "platform/FileDescriptor.h"
#include "terminal/CommandRequest.h"
#include "terminal/Frames.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace velmo {

/// What the application does with what comes in at its socket; called on the main executor.
struct CommandHooks {
    /// Whether a command is for the application; otherwise its client runs it.
    std::function<bool(const CommandRequest& request)> accepts;
    /// Carries out a command and gives its exit code. What it throws becomes a sentence on standard error.
    std::function<Async<int>(CommandRequest request, Console& console)> run;
    /// The person started the application again.
    std::function<void()> activate;
};

/// One client at the socket of the application, and what it asked for.
///
/// Has a strand of its own over the I/O executor. Output is queued and written there, so that a slow reader never holds
/// up the main executor; a command whose reader leaves `mostUnsent` bytes lying and still writes is cancelled. So is
/// one whose client goes, or says what it was not asked.
class CommandConnection : public std::enable_shared_from_this<CommandConnection> {
  public:
    /// Bytes of output that a command may go on writing behind.
    static constexpr std::size_t mostUnsent = 64 << 20;
    /// Where `caughtUp` stops waiting.
    static constexpr std::size_t littleUnsent = 256 << 10;
    /// For the client to say what it wants.
    static constexpr Duration patience{10'000};

    /// `descriptor` is connected and non-blocking. What is given by reference outlives the connection.
    CommandConnection(FileDescriptor descriptor, const Executors& executors, Clock& clock, const CommandHooks& hooks);
    ~CommandConnection();
    CommandConnection(const CommandConnection&) = delete;
    CommandConnection& operator=(const CommandConnection&) = delete;

    const Executor& strand() const;

    /// The whole exchange, to be run on the strand. The command has ended when this ends. Not to be cancelled: `quit`
    /// and `close` end it early.
    Async<void> serve();

    /// Cancels the command, and tells the client that the application quits. Any executor.
    void quit();

    /// Waits no longer for the client to read. Any executor.
    void close();

    // --- For the console of the command, on any executor
    // --------------------------------------------------------------

    void send(FrameType type, BytesView payload);
    /// Whether more than `most` bytes lie unsent.
    bool isBehind(std::size_t most = littleUnsent) const;

    /// Throws `Cancelled` when the client is gone.
    Async<void> caughtUp();

    /// `question` is askSecret, askLine or editText. Gives an `answer` or `noAnswer`, to the last also `editFailed`.
    /// Throws `Cancelled` when the client is gone.
    Async<Frame> ask(FrameType question, std::string prompt);

  private:
    struct State;

    Async<void> converse();
    Async<std::optional<Frame>> readRequest();
    Async<std::optional<Frame>> readFrame();
    Async<void> serveCommand(CommandRequest request);
    Async<void> carryOut(std::move_only_function<Async<void>()> command);
    Async<void> decline();
    Async<void> runCommand(CommandRequest request);
    Async<void> awaitCommand();
    Async<void> readAnswers();
    Async<void> writeFrames();
    Async<void> writeAll(BytesView bytes);
    void enqueue(FrameType type, BytesView payload);
    void cancelCommand(std::string reason);
    void clientGone();

    std::unique_ptr<State> state_;
};

}
