#include "base/Async.h"

#include "base/UserError.h"

#include <boost/asio/async_result.hpp>
#include <boost/asio/bind_cancellation_slot.hpp>
#include <boost/asio/cancellation_signal.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/dispatch.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/strand.hpp>
#include <boost/asio/this_coro.hpp>
#include <boost/asio/use_awaitable.hpp>

namespace velmo {

namespace asio = boost::asio;

namespace {

/// Starts `body` on `target`, and calls `handler` on its own executor when the body has ended.
///
/// The signal belongs to this one crossing, and the caller's cancellation is posted to the target. To hand the
/// caller's slot to the target directly is a use-after-free when the two threads meet.
struct Crossing {
    Executor target;
    detail::Body body;

    template <class Handler>
    void operator()(Handler&& handler) {
        auto signal = std::make_shared<asio::cancellation_signal>();
        auto callerSlot = asio::get_associated_cancellation_slot(handler);
        if (callerSlot.is_connected()) {
            callerSlot.assign([signal, executor = target](asio::cancellation_type type) {
                asio::post(executor, [signal, type] { signal->emit(type); });
            });
        }
        auto callerExecutor = asio::get_associated_executor(handler, target);
        asio::co_spawn(target, std::move(body),
                       asio::bind_cancellation_slot(signal->slot(), [signal, callerExecutor,
                                                                     handler = std::forward<Handler>(handler)](
                                                                        std::exception_ptr error) mutable {
                           asio::post(callerExecutor,
                                      [handler = std::move(handler), error]() mutable { std::move(handler)(error); });
                       }));
    }
};

}

namespace detail {

Async<void> runOn(Executor target, Body body) {
    const Executor here = co_await asio::this_coro::executor;
    if (here == target) {
        co_await body();
        co_return;
    }
    auto token = asio::use_awaitable;
    co_await asio::async_initiate<const asio::use_awaitable_t<>&, void(std::exception_ptr)>(
        Crossing{std::move(target), std::move(body)}, token);
}

}

Async<bool> isCancelled() {
    const auto state = co_await asio::this_coro::cancellation_state;
    co_return state.cancelled() != asio::cancellation_type::none;
}

Async<void> ignoreCancellation() {
    co_await asio::this_coro::reset_cancellation_state(asio::disable_cancellation());
}

Async<void> allowCancellation() {
    co_await asio::this_coro::reset_cancellation_state(asio::enable_terminal_cancellation());
}

Async<void> checkCancellation() {
    if (co_await isCancelled()) throw Cancelled();
}

Executor makeStrand(const Executor& underlying) {
    return asio::make_strand(underlying);
}

}
