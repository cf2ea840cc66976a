#include "base/Async.h"

#include "base/UserError.h"

#include <boost/asio/async_result.hpp>
#include <boost/asio/bind_cancellation_slot.hpp>
#include <boost/asio/cancellation_signal.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/dispatch.hpp>
#include <boost/asio/experimental/awaitable_operators.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/strand.hpp>
#include <boost/asio/this_coro.hpp>
#include <boost/asio/use_awaitable.hpp>

namespace velmo {

namespace asio = boost::asio;

namespace {

/// The executor itself when it runs one thing at a time, otherwise a strand over it: a coroutine and the signal that
/// cancels it must never meet on two threads.
Executor serialised(Executor executor) {
    if (executor.target<asio::strand<Executor>>() != nullptr) return executor;
    return makeStrand(executor);
}

/// Starts `body` on `target`, and calls `handler` on its own executor when the body has ended.
///
/// The signal belongs to this one crossing, and the caller's cancellation is posted to the target. To hand the
/// caller's slot to the target directly is a use-after-free when the two threads meet.
class Crossing {
  public:
    Crossing(Executor to, detail::Body what) : target_(serialised(std::move(to))), body_(std::move(what)) {}

    template <class Handler>
    void operator()(Handler&& handler) {
        auto signal = std::make_shared<asio::cancellation_signal>();
        auto callerSlot = asio::get_associated_cancellation_slot(handler);
        if (callerSlot.is_connected()) {
            callerSlot.assign([signal, executor = target_](asio::cancellation_type type) {
                asio::post(executor, [signal, type] { signal->emit(type); });
            });
        }
        auto callerExecutor = asio::get_associated_executor(handler, target_);
        auto guard = [body = std::move(body_)]() mutable { return detail::guarded(std::move(body)); };
        asio::co_spawn(target_, std::move(guard),
                       asio::bind_cancellation_slot(signal->slot(), [signal, callerExecutor,
                                                                     handler = std::forward<Handler>(handler)](
                                                                        std::exception_ptr error) mutable {
                           asio::post(callerExecutor,
                                      [handler = std::move(handler), error]() mutable { std::move(handler)(error); });
                       }));
    }

  private:
    Executor target_;
    detail::Body body_;
};

}

namespace detail {

Async<void> guarded(Body body) {
    std::exception_ptr failure;
    try {
        co_await body();
    } catch (...) {
        failure = std::current_exception();
    }
    co_await asio::this_coro::throw_if_cancelled(false);
    if (failure) std::rethrow_exception(failure);
}

Async<void> runOn(Executor target, Body body) {
    const Executor here = co_await asio::this_coro::executor;
    if (here == target) {
        co_await body();
        co_return;
    }
    Crossing crossing(std::move(target), std::move(body));
    auto token = asio::use_awaitable;
    co_await asio::async_initiate<const asio::use_awaitable_t<>&, void(std::exception_ptr)>(std::move(crossing), token);
}

}

namespace detail {

Async<std::exception_ptr> caught(Body body) {
    try {
        co_await body();
        co_return nullptr;
    } catch (...) {
        co_return std::current_exception();
    }
}

Async<void> runBoth(Body first, Body second) {
    using namespace asio::experimental::awaitable_operators;
    auto one = caught(std::move(first));
    auto other = caught(std::move(second));
    const std::tuple<std::exception_ptr, std::exception_ptr> ends = co_await (std::move(one) && std::move(other));
    if (std::get<0>(ends)) std::rethrow_exception(std::get<0>(ends));
    if (std::get<1>(ends)) std::rethrow_exception(std::get<1>(ends));
}

}

Async<void> checkCancellation() {
    const auto state = co_await cancellationState;
    if (isCancelled(state)) throw Cancelled();
}

namespace detail {

Async<bool> uninterrupted(Body body) {
    co_await checkCancellation();
    // A request is noted, and neither reaches the operation nor throws.
    co_await asio::this_coro::reset_cancellation_state(asio::enable_terminal_cancellation(),
                                                       asio::disable_cancellation());
    co_await asio::this_coro::throw_if_cancelled(false);
    const std::exception_ptr failure = co_await caught(std::move(body));
    const auto state = co_await cancellationState;
    co_await asio::this_coro::throw_if_cancelled(true);
    if (!isCancelled(state)) co_await allowCancellation();
    if (failure) std::rethrow_exception(failure);
    co_return isCancelled(state);
}

}

Executor makeStrand(const Executor& underlying) {
    return asio::make_strand(underlying);
}

}
