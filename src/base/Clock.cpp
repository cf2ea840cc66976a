#include "base/Clock.h"

#include "base/UserError.h"

#include <boost/asio/as_tuple.hpp>
#include <boost/asio/experimental/awaitable_operators.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/this_coro.hpp>
#include <boost/asio/use_awaitable.hpp>

namespace velmo {

namespace asio = boost::asio;

Date SystemClock::now() const {
    return std::chrono::floor<Duration>(std::chrono::system_clock::now());
}

Instant SystemClock::instant() const {
    return std::chrono::steady_clock::now();
}

Async<void> SystemClock::wait(Duration duration) {
    asio::steady_timer timer(co_await asio::this_coro::executor, duration);
    const auto [error] = co_await timer.async_wait(asio::as_tuple(asio::use_awaitable));
    if (error) throw Cancelled();
}

namespace {

/// A race ends with the first success, so both runners catch what they throw and succeed.
Async<std::exception_ptr> caughtWait(Clock& clock, Duration limit) {
    try {
        co_await clock.wait(limit);
        co_return nullptr;
    } catch (...) {
        co_return std::current_exception();
    }
}

}

namespace detail {

Async<bool> within(Clock& clock, Duration limit, Body body) {
    using namespace asio::experimental::awaitable_operators;
    auto operation = caught(std::move(body));
    auto wait = caughtWait(clock, limit);
    const std::variant<std::exception_ptr, std::exception_ptr> first =
        co_await (std::move(operation) || std::move(wait));
    if (first.index() == 1) {
        // The wait ends early only when the caller is cancelled.
        if (std::get<1>(first)) throw Cancelled();
        co_return false;
    }
    if (std::get<0>(first)) std::rethrow_exception(std::get<0>(first));
    co_return true;
}

}

}
