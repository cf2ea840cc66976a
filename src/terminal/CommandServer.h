#pragma once

#include "base/Async.h"
#include "base/Clock.h"
#include "terminal/CommandConnection.h"

#include <filesystem>
#include <memory>

namespace velmo {

/// Where the running application takes commands of `velmo`: any number of them side by side, up to `mostClients`;
/// others wait for their turn. Used on the main executor, where the hooks are called; its sockets live on the I/O
/// executor.
class CommandServer {
  public:
    static constexpr std::size_t mostClients = 128;

    /// `clock` outlives the server; `stop` is to be awaited before what the hooks refer to goes.
    CommandServer(const Executors& executors, Clock& clock, std::filesystem::path socket, CommandHooks hooks);
    ~CommandServer();
    CommandServer(const CommandServer&) = delete;
    CommandServer& operator=(const CommandServer&) = delete;

    /// Begins to listen, in the place of a socket that was left behind. Throws FileError.
    void start();

    /// Takes no more commands, cancels those that run and waits for their end; a client that does not read is told
    /// nothing then. Removes the socket.
    Async<void> stop();

  private:
    struct State;
    std::shared_ptr<State> state_;
};

}
