#include "base/Clock.h"

#include "base/UserError.h"

#include <boost/asio/experimental/awaitable_operators.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/redirect_error.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/this_coro.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <ctime>
#include <sys/timerfd.h>

namespace velmo {

namespace asio = boost::asio;

Date SystemClock::now() const {
    return std::chrono::floor<Duration>(std::chrono::system_clock::now());
}

Instant SystemClock::instant() const {
    timespec time{};
    ::clock_gettime(CLOCK_BOOTTIME, &time);
    return Instant(std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec));
}

/// The timers of Asio stand still while the machine sleeps: a night later nothing would be due, and mail would be
/// hours old.
Async<void> SystemClock::wait(Duration duration) {
    const auto executor = co_await asio::this_coro::executor;
    if (duration <= Duration{0}) co_return co_await checkCancellation();
    asio::posix::stream_descriptor timer(executor);
    boost::system::error_code error;
    timer.assign(::timerfd_create(CLOCK_BOOTTIME, TFD_CLOEXEC | TFD_NONBLOCK), error);
    if (!error) {
        const auto seconds = std::chrono::floor<std::chrono::seconds>(duration);
        itimerspec due{};
        due.it_value.tv_sec = seconds.count();
        due.it_value.tv_nsec = std::chrono::nanoseconds(duration - seconds).count();
        ::timerfd_settime(timer.native_handle(), 0, &due, nullptr);
        co_await timer.async_wait(asio::posix::stream_descriptor::wait_read,
                                  asio::redirect_error(asio::use_awaitable, error));
    } else {
        // Out of files: better late than never.
        asio::steady_timer awake(executor, duration);
        co_await awake.async_wait(asio::redirect_error(asio::use_awaitable, error));
    }
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
