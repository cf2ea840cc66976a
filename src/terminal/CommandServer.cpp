#include "terminal/CommandServer.h"

#include "base/Flag.h"
#include "base/Task.h"
#include "platform/Log.h"
#include "terminal/CommandSocket.h"

#include <boost/asio/as_tuple.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <boost/system/system_error.hpp>
#include <list>

namespace velmo {

namespace asio = boost::asio;

namespace {

/// When the system has no descriptor left.
constexpr Duration breath{100};
/// For clients to take the last words of the application.
constexpr Duration farewell{1'000};

struct Client {
    Client(std::shared_ptr<CommandConnection> connection_, Task serving_)
        : connection(std::move(connection_)), serving(std::move(serving_)) {}

    std::shared_ptr<CommandConnection> connection;
    Task serving;
};

}

/// Lives on its strand, but for what never changes.
struct CommandServer::State : std::enable_shared_from_this<CommandServer::State> {
    State(const Executors& executors_, Clock& clock_, std::filesystem::path path_, CommandHooks hooks_)
        : executors(executors_),
          clock(clock_),
          path(std::move(path_)),
          hooks(std::move(hooks_)),
          strand(makeStrand(executors.io)),
          acceptor(strand),
          clientLeft(strand) {}

    Async<void> acceptClients();
    void admit(FileDescriptor descriptor);
    Async<void> endClients();
    Async<void> clientsEnded();

    const Executors executors;
    Clock& clock;
    const std::filesystem::path path;
    const CommandHooks hooks;
    const Executor strand;
    asio::local::stream_protocol::acceptor acceptor;
    Task accepting;
    std::list<Client> clients;
    std::size_t served = 0;
    Flag clientLeft;
};

CommandServer::CommandServer(const Executors& executors, Clock& clock, std::filesystem::path socket, CommandHooks hooks)
    : state_(std::make_shared<State>(executors, clock, std::move(socket), std::move(hooks))) {}

CommandServer::~CommandServer() {
    state_->accepting.cancel();
}

void CommandServer::start() {
    FileDescriptor listener = listenAt(state_->path);
    state_->acceptor.assign(asio::local::stream_protocol(), listener.release());
    state_->accepting = Task(state_->strand, [self = state_] { return self->acceptClients(); });
}

Async<void> CommandServer::State::acceptClients() {
    for (;;) {
        std::erase_if(clients, [](const Client& client) { return client.serving.isFinished(); });
        if (served >= mostClients) {
            clientLeft.lower();
            co_await clientLeft.wait();
            continue;
        }
        auto [error, socket] = co_await acceptor.async_accept(asio::as_tuple(asio::use_awaitable));
        if (error)
            co_await clock.wait(breath);
        else
            admit(FileDescriptor(socket.release()));
    }
}

void CommandServer::State::admit(FileDescriptor descriptor) {
    std::shared_ptr<CommandConnection> connection;
    try {
        connection = std::make_shared<CommandConnection>(std::move(descriptor), executors, clock, hooks);
    } catch (const boost::system::system_error& error) {
        log("Terminal").warning("A client could not be taken in: {}", pub(error.what()));
        return;
    }
    ++served;
    Task serving(connection->strand(), [self = shared_from_this(), connection]() -> Async<void> {
        co_await connection->serve();
        asio::post(self->strand, [self] {
            --self->served;
            self->clientLeft.raise();
        });
    });
    clients.emplace_back(std::move(connection), std::move(serving));
}

Async<void> CommandServer::stop() {
    co_await runOn(state_->strand, [this]() -> Async<void> {
        state_->accepting.cancel();
        co_await state_->accepting.finished();
        boost::system::error_code ignored;
        state_->acceptor.close(ignored);
        co_await state_->endClients();
    });
    std::error_code ignored;
    std::filesystem::remove(state_->path, ignored);
}

Async<void> CommandServer::State::endClients() {
    for (const Client& client : clients) client.connection->quit();
    const auto ended = co_await within(clock, farewell, [this] { return clientsEnded(); });
    if (ended) co_return;
    for (const Client& client : clients) client.connection->close();
    co_await clientsEnded();
}

Async<void> CommandServer::State::clientsEnded() {
    for (Client& client : clients) co_await client.serving.finished();
}

}
