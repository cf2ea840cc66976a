#include "protocols/Watchdog.h"

#include "base/Outermost.h"
#include "base/UserError.h"

#include <boost/asio/bind_cancellation_slot.hpp>
#include <boost/asio/cancellation_signal.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/this_coro.hpp>
#include <utility>

namespace velmo {

namespace asio = boost::asio;

Watchdog::Watchdog(Executor executor, Clock& clock, std::function<void()> onExpiry)
    : executor_(std::move(executor)),
      clock_(clock),
      onExpiry_(std::move(onExpiry)),
      wake_(std::make_unique<asio::cancellation_signal>()) {}

Watchdog::~Watchdog() = default;

void Watchdog::arm(Duration limit) {
    hasExpired_ = false;
    deadline_ = clock_.instant() + limit;
    // Operations of one limit share a wait, since theirs falls due before them and can be prolonged.
    const bool fits = std::exchange(limit_, limit) == limit;
    if (isWatching_) {
        if (!fits) wake_->emit(asio::cancellation_type::terminal);
        return;
    }
    isWatching_ = true;
    auto stopped = [weak = weak_from_this(), executor = executor_] {
        asio::post(executor, [weak] {
            if (const auto self = weak.lock()) self->stop();
        });
    };
    auto body = [self = shared_from_this()]() -> Async<void> { co_await self->watch(); };
    auto ended = [place = detail::enterOutermost(executor_, std::move(stopped))](std::exception_ptr) {};
    asio::co_spawn(executor_, std::move(body), asio::bind_cancellation_slot(wake_->slot(), std::move(ended)));
}

bool Watchdog::disarm() {
    deadline_.reset();
    return hasExpired_;
}

void Watchdog::stop() {
    deadline_.reset();
    if (isWatching_) wake_->emit(asio::cancellation_type::terminal);
}

Async<void> Watchdog::watch() {
    co_await asio::this_coro::throw_if_cancelled(false);
    while (deadline_) {
        const Instant now = clock_.instant();
        if (now >= *deadline_) {
            hasExpired_ = true;
            deadline_.reset();
            onExpiry_();
            break;
        }
        const Duration left = std::chrono::ceil<Duration>(*deadline_ - now);
        try {
            co_await clock_.wait(left);
        } catch (const Cancelled&) {
            // An earlier deadline has been set, or none is left.
        }
        co_await allowCancellation();
    }
    isWatching_ = false;
}

}
