#pragma once

#include "base/Async.h"
#include "base/Date.h"

#include <chrono>
#include <expected>

namespace velmo {

/// A moment on a clock that never jumps and goes on while the machine sleeps; only differences mean something.
using Instant = std::chrono::time_point<std::chrono::steady_clock, std::chrono::nanoseconds>;

/// Where time comes from. Everything that waits or dates takes one, so that a test decides how time passes.
/// Every operation may be called from any executor.
class Clock {
  public:
    virtual ~Clock() = default;

    /// Civil time.
    virtual Date now() const = 0;

    /// Time that never jumps, for measuring.
    virtual Instant instant() const = 0;

    /// Ends after `duration`, at the end of its sleep when the machine slept over it. Throws `Cancelled` when the
    /// waiting coroutine is cancelled first.
    virtual Async<void> wait(Duration duration) = 0;
};

/// The machine's own time.
class SystemClock final : public Clock {
  public:
    Date now() const override;
    Instant instant() const override;
    Async<void> wait(Duration duration) override;
};

/// An operation outran its limit.
struct TimedOut {
    friend bool operator==(const TimedOut&, const TimedOut&) = default;
};

namespace detail {

/// True when the body ended first; then what it threw is thrown. False when the limit passed first: the body was
/// cancelled, and has ended.
Async<bool> within(Clock& clock, Duration limit, Body body);

}

/// Runs `operation` and cancels it when `limit` passes first. The operation has always ended when this gives its
/// result. Cancelling the caller cancels the operation, and ends with `Cancelled` or what the operation makes of it.
template <class F>
Async<std::expected<detail::ResultOf<F>, TimedOut>> within(Clock& clock, Duration limit, F operation) {
    using T = detail::ResultOf<F>;
    if constexpr (std::is_void_v<T>) {
        const bool ended =
            co_await detail::within(clock, limit, [&operation]() -> Async<void> { co_await operation(); });
        if (!ended) co_return std::unexpected(TimedOut{});
        co_return std::expected<void, TimedOut>{};
    } else {
        std::optional<T> result;
        const bool ended = co_await detail::within(
            clock, limit, [&operation, &result]() -> Async<void> { result.emplace(co_await operation()); });
        // A result that was there when the limit passed is a result.
        if (!ended && !result) co_return std::unexpected(TimedOut{});
        co_return std::move(*result);
    }
}

}
