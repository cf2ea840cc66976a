#include "support/FaultProxy.h"

#include <array>
#include <boost/asio/as_tuple.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <boost/asio/write.hpp>
#include <functional>
#include <list>
#include <mutex>
#include <thread>

namespace velmo::test {

namespace asio = boost::asio;
using asio::ip::tcp;
using Fault = FaultProxy::Fault;

namespace {

constexpr auto asResult = asio::as_tuple(asio::use_awaitable);

/// One client and its way to the server.
struct Connection {
    explicit Connection(const asio::any_io_executor& executor) : client(executor), server(executor) {}

    void close(Fault::Kind how) {
        boost::system::error_code ignored;
        for (tcp::socket* socket : {&client, &server}) {
            if (how == Fault::Kind::reset) socket->set_option(asio::socket_base::linger(true, 0), ignored);
            if (how == Fault::Kind::cut) socket->shutdown(tcp::socket::shutdown_both, ignored);
            socket->close(ignored);
        }
    }

    tcp::socket client;
    tcp::socket server;
};

}

struct FaultProxy::State : std::enable_shared_from_this<State> {
    State(std::string host_, int port_) : host(std::move(host_)), port(port_) {}

    asio::awaitable<void> serve() {
        for (;;) {
            auto connection = std::make_shared<Connection>(io.get_executor());
            const auto [error] = co_await acceptor.async_accept(connection->client, asResult);
            if (error) co_return;
            if (refuses()) {
                connection->close(Fault::Kind::reset);
                continue;
            }
            auto run = [self = shared_from_this(), connection]() { return self->relay(connection); };
            asio::co_spawn(io, std::move(run), asio::detached);
        }
    }

    asio::awaitable<void> relay(std::shared_ptr<Connection> connection) {
        tcp::resolver resolver(io);
        const auto [unknown, found] = co_await resolver.async_resolve(host, std::to_string(port), asResult);
        const auto address = unknown ? tcp::endpoint() : found.begin()->endpoint();
        const auto [refused] = co_await connection->server.async_connect(address, asResult);
        if (refused) {
            connection->close(Fault::Kind::reset);
            co_return;
        }
        connections.push_back(connection);
        for (const auto direction : {Fault::Direction::toServer, Fault::Direction::toClient}) {
            auto run = [self = shared_from_this(), connection, direction]() {
                return self->pump(connection, direction);
            };
            asio::co_spawn(io, std::move(run), asio::detached);
        }
    }

    asio::awaitable<void> pump(std::shared_ptr<Connection> connection, Fault::Direction direction) {
        const bool isUp = direction == Fault::Direction::toServer;
        tcp::socket& from = isUp ? connection->client : connection->server;
        tcp::socket& to = isUp ? connection->server : connection->client;
        std::array<char, 16384> chunk;
        for (;;) {
            const std::size_t most = allowance(direction, chunk.size());
            if (most == 0) {
                const Fault::Kind kind = strike();
                if (kind == Fault::Kind::stall) co_return;
                if (kind == Fault::Kind::slice || kind == Fault::Kind::none) continue;
                connection->close(kind);
                co_return;
            }
            const auto [end, count] = co_await from.async_read_some(asio::buffer(chunk.data(), most), asResult);
            if (count > 0) {
                const auto [failed, written] =
                    co_await asio::async_write(to, asio::buffer(chunk.data(), count), asResult);
                note(direction, count);
                if (failed) break;
            }
            if (end) break;
        }
        connection->close(Fault::Kind::cut);
    }

    /// How many bytes may go on; none when the fault strikes now.
    std::size_t allowance(Fault::Direction direction, std::size_t most) {
        const std::lock_guard lock(mutex);
        if (isSlicing) return 1;
        if (fault.kind == Fault::Kind::none || fault.kind == Fault::Kind::refuse || fault.direction != direction)
            return most;
        const auto left = fault.after - carried[static_cast<std::size_t>(direction)];
        return left <= 0 ? 0 : std::min(most, static_cast<std::size_t>(left));
    }

    Fault::Kind strike() {
        const std::lock_guard lock(mutex);
        const Fault::Kind kind = fault.kind;
        hasStruck = true;
        if (kind == Fault::Kind::slice) isSlicing = true;
        if (isOnce || kind == Fault::Kind::slice) fault = {};
        return kind;
    }

    bool refuses() {
        const std::lock_guard lock(mutex);
        if (fault.kind != Fault::Kind::refuse) return false;
        hasStruck = true;
        if (isOnce) fault = {};
        return true;
    }

    void note(Fault::Direction direction, std::size_t bytes) {
        const std::lock_guard lock(mutex);
        carried[static_cast<std::size_t>(direction)] += static_cast<std::int64_t>(bytes);
    }

    void set(Fault next, bool once) {
        const std::lock_guard lock(mutex);
        fault = next;
        isOnce = once;
        hasStruck = isSlicing = false;
        carried = {};
    }

    std::string host;
    int port;
    asio::io_context io;
    tcp::acceptor acceptor{io, tcp::endpoint(asio::ip::address_v4::loopback(), 0)};
    std::list<std::weak_ptr<Connection>> connections;
    std::mutex mutex; // guards what follows
    Fault fault;
    bool isOnce = false;
    bool hasStruck = false;
    bool isSlicing = false;
    std::array<std::int64_t, 2> carried{};
    std::jthread thread;
};

FaultProxy::FaultProxy(std::string host, int port) : state_(std::make_shared<State>(std::move(host), port)) {
    auto run = [state = state_]() { return state->serve(); };
    asio::co_spawn(state_->io, std::move(run), asio::detached);
    state_->thread = std::jthread([state = state_.get()] { state->io.run(); });
}

FaultProxy::~FaultProxy() {
    breakAll();
    // Everything that runs holds the state, so it has to come to its end.
    asio::post(state_->io, [state = state_] {
        boost::system::error_code ignored;
        state->acceptor.close(ignored);
    });
    state_->thread.join();
}

int FaultProxy::port() const {
    return state_->acceptor.local_endpoint().port();
}

void FaultProxy::failOnce(Fault fault) {
    state_->set(fault, true);
}

void FaultProxy::fail(Fault fault) {
    state_->set(fault, false);
}

bool FaultProxy::hasStruck() const {
    const std::lock_guard lock(state_->mutex);
    return state_->hasStruck;
}

std::int64_t FaultProxy::carried(Fault::Direction direction) const {
    const std::lock_guard lock(state_->mutex);
    return state_->carried[static_cast<std::size_t>(direction)];
}

void FaultProxy::breakAll() {
    asio::post(state_->io, [state = state_] {
        for (const auto& weak : state->connections)
            if (const auto connection = weak.lock()) connection->close(Fault::Kind::reset);
        state->connections.clear();
    });
}

}
