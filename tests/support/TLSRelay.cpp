#include "support/TLSRelay.h"

#include <algorithm>
#include <array>
#include <boost/asio/as_tuple.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/ssl.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <boost/asio/write.hpp>
#include <deque>
#include <list>
#include <mutex>
#include <set>
#include <thread>

namespace velmo::test {

namespace asio = boost::asio;
namespace ssl = asio::ssl;
using asio::ip::tcp;
using Fault = FaultProxy::Fault;

namespace {

constexpr auto asResult = asio::as_tuple(asio::use_awaitable);

struct Connection {
    Connection(asio::io_context& io, ssl::context& front, ssl::context& back) : client(io, front), server(io, back) {}

    void close(Fault::Kind how) {
        boost::system::error_code ignored;
        for (tcp::socket* socket : {&client.next_layer(), &server.next_layer()}) {
            if (how == Fault::Kind::reset) socket->set_option(asio::socket_base::linger(true, 0), ignored);
            if (how == Fault::Kind::cut) socket->shutdown(tcp::socket::shutdown_both, ignored);
            socket->close(ignored);
        }
    }

    ssl::stream<tcp::socket> client, server;
    std::size_t number = 0;
};

}

struct TLSRelay::State : std::enable_shared_from_this<State> {
    State(ServerConfig server_, const std::filesystem::path& certificate) : server(std::move(server_)) {
        auto key = certificate;
        key.replace_extension(".key");
        front.use_certificate_chain_file(certificate.string());
        front.use_private_key_file(key.string(), ssl::context::pem);
    }

    asio::awaitable<void> serve() {
        for (;;) {
            auto connection = std::make_shared<Connection>(io, front, back);
            const auto [error] = co_await acceptor.async_accept(connection->client.next_layer(), asResult);
            if (error) co_return;
            connection->number = begin();
            connections.push_back(connection);
            auto run = [self = shared_from_this(), connection]() { return self->relay(connection); };
            asio::co_spawn(io, std::move(run), asio::detached);
        }
    }

    asio::awaitable<void> relay(std::shared_ptr<Connection> connection) {
        if (faultOf(*connection).kind == Fault::Kind::refuse) {
            strike(*connection);
            end(*connection, Fault::Kind::reset);
            co_return;
        }
        tcp::resolver resolver(io);
        const auto [unknown, found] =
            co_await resolver.async_resolve(server.host, std::to_string(server.port), asResult);
        const auto address = unknown ? tcp::endpoint() : found.begin()->endpoint();
        const auto [refused] = co_await connection->server.next_layer().async_connect(address, asResult);
        if (!refused) {
            for (tcp::socket* socket : {&connection->client.next_layer(), &connection->server.next_layer()})
                socket->set_option(tcp::no_delay(true));
            const auto [behind] = co_await connection->server.async_handshake(ssl::stream_base::client, asResult);
            const auto [before] = co_await connection->client.async_handshake(ssl::stream_base::server, asResult);
            if (!behind && !before) {
                for (const auto direction : {Fault::Direction::toServer, Fault::Direction::toClient}) {
                    auto run = [self = shared_from_this(), connection, direction]() {
                        return self->pump(connection, direction);
                    };
                    asio::co_spawn(io, std::move(run), asio::detached);
                }
                co_return;
            }
        }
        end(*connection, Fault::Kind::reset);
    }

    asio::awaitable<void> pump(std::shared_ptr<Connection> connection, Fault::Direction direction) {
        const bool isUp = direction == Fault::Direction::toServer;
        auto& from = isUp ? connection->client : connection->server;
        auto& to = isUp ? connection->server : connection->client;
        const Fault fault = faultOf(*connection);
        const bool isFaulty = fault.kind != Fault::Kind::none && fault.direction == direction;
        std::array<char, 16384> chunk;
        std::int64_t left = fault.after;
        bool isBlackHole = false;
        for (;;) {
            if (isFaulty && left == 0 && !isBlackHole) {
                strike(*connection);
                if (fault.kind != Fault::Kind::stall) {
                    end(*connection, fault.kind);
                    co_return;
                }
                isBlackHole = true;
            }
            std::size_t most = chunk.size();
            if (isFaulty && !isBlackHole) most = std::min(most, static_cast<std::size_t>(left));
            const auto [ended, size] = co_await from.async_read_some(asio::buffer(chunk.data(), most), asResult);
            if (size > 0 && !isBlackHole) {
                // Noted first: whoever has read it may ask for it at once.
                note(*connection, direction, {chunk.data(), size});
                const auto [failed, written] =
                    co_await asio::async_write(to, asio::buffer(chunk.data(), size), asResult);
                if (failed) break;
                left -= static_cast<std::int64_t>(size);
            }
            if (ended) break;
        }
        end(*connection, Fault::Kind::cut);
    }

    std::size_t begin() {
        const std::lock_guard lock(mutex);
        auto& passage = passages.emplace_back();
        if (!faults.empty()) {
            passage.fault = faults.front();
            faults.pop_front();
        }
        return passages.size() - 1;
    }

    Fault faultOf(const Connection& connection) {
        const std::lock_guard lock(mutex);
        return passages[connection.number].fault;
    }

    void strike(const Connection& connection) {
        const std::lock_guard lock(mutex);
        passages[connection.number].hasStruck = true;
        if (passages[connection.number].fault.kind == Fault::Kind::stall) stalled.insert(connection.number);
    }

    void end(Connection& connection, Fault::Kind how) {
        connection.close(how);
        const std::lock_guard lock(mutex);
        stalled.erase(connection.number);
    }

    void note(const Connection& connection, Fault::Direction direction, std::string_view bytes) {
        const std::lock_guard lock(mutex);
        passages[connection.number].carried(direction) += bytes;
    }

    ServerConfig server;
    ssl::context front{ssl::context::tls_server}, back{ssl::context::tls_client};
    asio::io_context io;
    tcp::acceptor acceptor{io, tcp::endpoint(asio::ip::address_v4::loopback(), 0)};
    std::list<std::weak_ptr<Connection>> connections;
    std::mutex mutex; // guards what follows
    std::deque<Fault> faults;
    std::vector<Passage> passages;
    std::set<std::size_t> stalled;
    std::jthread thread;
};

TLSRelay::TLSRelay(ServerConfig server, const std::filesystem::path& certificate)
    : state_(std::make_shared<State>(std::move(server), certificate)) {
    auto run = [state = state_]() { return state->serve(); };
    asio::co_spawn(state_->io, std::move(run), asio::detached);
    state_->thread = std::jthread([state = state_.get()] { state->io.run(); });
}

TLSRelay::~TLSRelay() {
    // Everything that runs holds the state, so it has to come to its end.
    asio::post(state_->io, [state = state_] {
        boost::system::error_code ignored;
        state->acceptor.close(ignored);
        for (const auto& weak : state->connections)
            if (const auto connection = weak.lock()) state->end(*connection, Fault::Kind::reset);
    });
    state_->thread.join();
}

int TLSRelay::port() const {
    return state_->acceptor.local_endpoint().port();
}

void TLSRelay::plan(std::vector<Fault> faults) {
    const std::lock_guard lock(state_->mutex);
    state_->faults.assign(faults.begin(), faults.end());
}

std::vector<TLSRelay::Passage> TLSRelay::passages() const {
    const std::lock_guard lock(state_->mutex);
    return state_->passages;
}

std::size_t TLSRelay::stalled() const {
    const std::lock_guard lock(state_->mutex);
    return state_->stalled.size();
}

}
