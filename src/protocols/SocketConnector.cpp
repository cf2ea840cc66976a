#include "protocols/SocketConnector.h"

#include "base/UserError.h"
#include "protocols/NameLookup.h"

#include <algorithm>
#include <boost/asio/as_tuple.hpp>
#include <boost/asio/bind_executor.hpp>
#include <boost/asio/error.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/this_coro.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <memory>
#include <optional>

namespace velmo::connector {

namespace asio = boost::asio;
using Error = boost::system::error_code;
using Socket = asio::ip::tcp::socket;

namespace {

/// A flag that a coroutine can wait for. Completion handlers raise it.
class Signal {
  public:
    explicit Signal(const Executor& executor) : timer_(executor, asio::steady_timer::time_point::max()) {}

    void raise() { timer_.expires_at(asio::steady_timer::time_point::min()); }
    void lower() { timer_.expires_at(asio::steady_timer::time_point::max()); }
    Async<void> wait() { co_await timer_.async_wait(asio::as_tuple(asio::use_awaitable)); }

  private:
    asio::steady_timer timer_;
};

struct Race {
    explicit Race(const Executor& executor_) : executor(executor_), changed(executor_) {}

    Executor executor;
    Signal changed;
    std::vector<std::unique_ptr<Socket>> sockets;
    std::optional<std::size_t> winner;
    std::size_t failed = 0;
    Error lastError = asio::error::host_not_found;

    void fail(const Error& error) {
        lastError = error;
        ++failed;
        changed.raise();
    }
};

void startAttempt(const std::shared_ptr<Race>& race, const Endpoint& endpoint) {
    const std::size_t index = race->sockets.size();
    race->sockets.push_back(std::make_unique<Socket>(race->executor));
    const asio::ip::tcp::endpoint target(asio::ip::make_address(endpoint.address),
                                         static_cast<asio::ip::port_type>(endpoint.port));
    race->sockets.back()->async_connect(target, asio::bind_executor(race->executor, [race, index](const Error& error) {
                                            if (error) return race->fail(error);
                                            if (!race->winner) race->winner = index;
                                            race->changed.raise();
                                        }));
}

/// Closes the sockets that are no longer wanted, however the race ends.
struct Losers {
    std::shared_ptr<Race> race;

    explicit Losers(std::shared_ptr<Race> race_) : race(std::move(race_)) {}
    Losers(const Losers&) = delete;
    Losers& operator=(const Losers&) = delete;
    ~Losers() {
        for (const auto& socket : race->sockets) {
            Error ignored;
            socket->close(ignored);
        }
    }
};

}

Async<std::vector<Endpoint>> resolve(std::string host, int port) {
    Error notNumeric;
    static_cast<void>(asio::ip::make_address(host, notNumeric));
    if (!notNumeric) co_return std::vector<Endpoint>(1, Endpoint(host, port));
    co_return co_await lookUp(std::move(host), port, systemLookup);
}

std::vector<Endpoint> interleaved(const std::vector<Endpoint>& endpoints) {
    std::vector<Endpoint> six, four, result;
    for (const Endpoint& endpoint : endpoints) (endpoint.isIPv6() ? six : four).push_back(endpoint);
    for (std::size_t i = 0; i < std::max(six.size(), four.size()); ++i) {
        if (i < six.size()) result.push_back(six[i]);
        if (i < four.size()) result.push_back(four[i]);
    }
    return result;
}

Async<FileDescriptor> connectFirst(Clock& clock, std::vector<Endpoint> endpoints) {
    auto race = std::make_shared<Race>(co_await asio::this_coro::executor);
    const Losers losers(race);
    while (!race->winner) {
        const bool allStarted = race->sockets.size() == endpoints.size();
        if (allStarted && race->failed == endpoints.size()) throw boost::system::system_error(race->lastError);
        if (!allStarted) startAttempt(race, endpoints[race->sockets.size()]);
        if (race->sockets.size() == endpoints.size()) {
            co_await race->changed.wait();
        } else {
            static_cast<void>(co_await within(clock, attemptDelay, [&race] { return race->changed.wait(); }));
        }
        const auto state = co_await cancellationState;
        if (isCancelled(state)) throw Cancelled();
        race->changed.lower();
    }
    co_return FileDescriptor(race->sockets[*race->winner]->release());
}

}
