#pragma once

#include "base/Date.h"

#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/awaitable.hpp>
#include <boost/asio/cancellation_state.hpp>
#include <boost/asio/this_coro.hpp>
#include <exception>
#include <expected>
#include <functional>
#include <memory>
#include <optional>
#include <type_traits>
#include <utility>
#include <variant>

namespace velmo {

/// A coroutine: lazy, started by `co_await`, run on the executor of its awaiter.
template <class T = void>
using Async = boost::asio::awaitable<T>;

using Executor = boost::asio::any_io_executor;

/// The executors of a program. `main` is where observed state lives; `io` belongs to sockets and timers; CPU work
/// (parsing, page building) and blocking calls of libraries run on `background`.
struct Executors {
    Executor main;
    Executor io;
    Executor background;
};

namespace detail {

using Body = std::move_only_function<Async<void>()>;
Async<void> runOn(Executor target, Body body);
/// Runs `body` as the outermost coroutine of a spawn. The library waits once more behind it, and would end the
/// process if a cancellation found it there; so by then cancellation throws no more.
Async<void> guarded(Body body);
/// Gives what `body` threw rather than throwing it; nothing when it ended well.
Async<std::exception_ptr> caught(Body body);
template <class F>
using ResultOf = typename std::invoke_result_t<F&>::value_type;

}

/// Runs `operation` (a callable that gives an `Async<T>`) on `target`, and gives its result on the caller's executor.
/// When the caller runs on `target` already there is no hop. Cancelling the caller cancels the operation, and its end
/// is waited for; so what the operation refers to stays alive.
template <class F>
Async<detail::ResultOf<F>> runOn(Executor target, F operation) {
    using T = detail::ResultOf<F>;
    if constexpr (std::is_void_v<T>) {
        co_await detail::runOn(std::move(target), [&operation]() -> Async<void> { co_await operation(); });
    } else {
        std::optional<T> result;
        co_await detail::runOn(std::move(target),
                               [&operation, &result]() -> Async<void> { result.emplace(co_await operation()); });
        co_return std::move(*result);
    }
}

/// Calls a plain function on `target`; for CPU work and blocking calls: `co_await callOn(background, [&] {…})`.
template <class F>
Async<std::invoke_result_t<F&>> callOn(Executor target, F function) {
    using T = std::invoke_result_t<F&>;
    if constexpr (std::is_void_v<T>) {
        co_await detail::runOn(std::move(target), [&function]() -> Async<void> {
            function();
            co_return;
        });
    } else {
        std::optional<T> result;
        co_await detail::runOn(std::move(target), [&function, &result]() -> Async<void> {
            result.emplace(function());
            co_return;
        });
        co_return std::move(*result);
    }
}

namespace detail {

Async<void> runBoth(Body first, Body second);

}

/// Runs two operations (callables that give an `Async<void>`) at the same time, in turns on the caller's executor.
/// Both have always ended when this ends; then it throws what the first threw, or else the second.
template <class F, class G>
Async<void> both(F first, G second) {
    co_await detail::runBoth([&first]() -> Async<void> { co_await first(); },
                             [&second]() -> Async<void> { co_await second(); });
}

/// `const auto state = co_await cancellationState;` and then `isCancelled(state)` tell whether the running coroutine
/// has been asked to end (in one expression g++ 12 miscompiles it). After that every further `co_await` throws an abort
/// (see `isCancellation`), but for those of the four words here.
inline constexpr auto cancellationState = boost::asio::this_coro::cancellation_state;
inline bool isCancelled(const boost::asio::cancellation_state& state) {
    return state.cancelled() != boost::asio::cancellation_type::none;
}

/// `co_await ignoreCancellation()` lets the running coroutine finish what must not be cut off: a cancellation that has
/// arrived no longer stops its waits, later ones neither.
inline auto ignoreCancellation() {
    return boost::asio::this_coro::reset_cancellation_state(boost::asio::disable_cancellation());
}

/// `co_await allowCancellation()` makes later waits cancellable again, after `ignoreCancellation` or after a
/// cancellation that was dealt with.
inline auto allowCancellation() {
    return boost::asio::this_coro::reset_cancellation_state(boost::asio::enable_terminal_cancellation());
}

/// Ends the coroutine when it has been asked to end. A loop calls it after each wait.
Async<void> checkCancellation();

namespace detail {

Async<bool> uninterrupted(Body body);

}

/// Runs `operation` (a callable that gives an `Async<void>`) to its end, whoever asks the coroutine to end meanwhile,
/// and gives whether somebody has; then the next `co_await` throws, but for those of the four words. Begins nothing in
/// a coroutine that has been asked to end before. What the operation throws is thrown.
template <class F>
Async<bool> uninterrupted(F operation) {
    co_return co_await detail::uninterrupted([&operation]() -> Async<void> { co_await operation(); });
}

/// An executor that runs one thing at a time, over the threads of `underlying`.
Executor makeStrand(const Executor& underlying);

}
