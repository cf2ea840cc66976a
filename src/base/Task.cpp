#include "base/Task.h"

#include "base/Outermost.h"
#include "base/UserError.h"

#include <atomic>
#include <boost/asio/as_tuple.hpp>
#include <boost/asio/bind_cancellation_slot.hpp>
#include <boost/asio/cancellation_signal.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/strand.hpp>
#include <boost/asio/use_awaitable.hpp>

namespace velmo {

namespace asio = boost::asio;

/// The body runs on a strand of its own, so that its cancellation signal has one thread at a time. The timer never
/// goes off; its cancellation wakes those who wait for the end.
struct Task::State {
    explicit State(const Executor& executor)
        : strand(asio::make_strand(executor)), ended(strand, asio::steady_timer::time_point::max()) {}

    static void cancel(const std::shared_ptr<State>& state) {
        asio::post(state->strand, [state] {
            if (!state->isFinished) state->signal.emit(asio::cancellation_type::terminal);
        });
    }

    asio::strand<Executor> strand;
    asio::cancellation_signal signal;
    asio::steady_timer ended;
    std::exception_ptr failure;
    std::atomic<bool> isFinished = false;
};

Task::Task(const Executor& executor, std::move_only_function<Async<void>()> body)
    : state_(std::make_shared<State>(executor)) {
    auto cancelled = [weak = std::weak_ptr(state_)] {
        if (const auto state = weak.lock()) State::cancel(state);
    };
    auto place = detail::enterOutermost(executor, std::move(cancelled));
    asio::post(state_->strand, [state = state_, place = std::move(place), body = std::move(body)]() mutable {
        auto guard = [body = std::move(body)]() mutable { return detail::guarded(std::move(body)); };
        auto ended = [state, place = std::move(place)](std::exception_ptr error) {
            if (!isCancellation(error)) state->failure = error;
            state->isFinished = true;
            state->ended.expires_at(asio::steady_timer::time_point::min());
        };
        asio::co_spawn(state->strand, std::move(guard),
                       asio::bind_cancellation_slot(state->signal.slot(), std::move(ended)));
    });
}

Task& Task::operator=(Task&& other) noexcept {
    if (this != &other) {
        cancel();
        state_ = std::move(other.state_);
    }
    return *this;
}

Task::~Task() {
    cancel();
}

void Task::cancel() {
    if (state_ && !state_->isFinished) State::cancel(state_);
}

bool Task::isFinished() const {
    return !state_ || state_->isFinished;
}

Async<void> Task::finished() {
    auto state = state_;
    if (!state) co_return;
    const Executor strand = state->strand;
    co_await runOn(strand, [&state]() -> Async<void> {
        if (!state->isFinished) co_await state->ended.async_wait(asio::as_tuple(asio::use_awaitable));
        co_await checkCancellation();
        if (state->failure) std::rethrow_exception(state->failure);
    });
}

}
