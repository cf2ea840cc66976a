#include "base/ManualClock.h"

#include "base/UserError.h"

#include <algorithm>
#include <boost/asio/as_tuple.hpp>
#include <boost/asio/associated_cancellation_slot.hpp>
#include <boost/asio/associated_executor.hpp>
#include <boost/asio/async_result.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <functional>
#include <map>
#include <mutex>

namespace velmo {

namespace asio = boost::asio;

struct ManualClock::State {
    using Wake = std::move_only_function<void(bool fired)>;

    mutable std::mutex mutex;
    Date start;
    Duration elapsed{0};
    /// By due time, then by arrival.
    std::map<std::pair<Duration, std::uint64_t>, Wake> waits;
    std::uint64_t arrivals = 0;

    /// Takes a wait out, if it still stands, and ends it.
    void end(const std::pair<Duration, std::uint64_t>& key, bool fired) {
        Wake wake;
        {
            const std::lock_guard lock(mutex);
            const auto found = waits.find(key);
            if (found == waits.end()) return;
            wake = std::move(found->second);
            waits.erase(found);
        }
        wake(fired);
    }
};

ManualClock::ManualClock(Date start) : state_(std::make_shared<State>()) {
    state_->start = start;
}
ManualClock::~ManualClock() = default;

Date ManualClock::now() const {
    const std::lock_guard lock(state_->mutex);
    return state_->start + state_->elapsed;
}

Instant ManualClock::instant() const {
    const std::lock_guard lock(state_->mutex);
    return Instant{state_->elapsed};
}

Async<void> ManualClock::wait(Duration duration) {
    if (duration <= Duration{0}) {
        co_await checkCancellation();
        co_return;
    }
    auto initiate = [state = state_, duration](auto handler) {
        auto slot = asio::get_associated_cancellation_slot(handler);
        auto executor = asio::get_associated_executor(handler);
        const std::lock_guard lock(state->mutex);
        const std::pair key{state->elapsed + duration, state->arrivals++};
        state->waits.emplace(key, [executor, handler = std::move(handler)](bool fired) mutable {
            asio::post(executor, [handler = std::move(handler), fired]() mutable { std::move(handler)(fired); });
        });
        if (slot.is_connected()) {
            slot.assign([weak = std::weak_ptr(state), key](asio::cancellation_type) {
                if (const auto alive = weak.lock()) alive->end(key, false);
            });
        }
    };
    auto token = asio::use_awaitable;
    const bool fired =
        co_await asio::async_initiate<const asio::use_awaitable_t<>&, void(bool)>(std::move(initiate), token);
    if (!fired) throw Cancelled();
}

void ManualClock::advance(Duration duration) {
    std::vector<State::Wake> due;
    {
        const std::lock_guard lock(state_->mutex);
        state_->elapsed += duration;
        while (!state_->waits.empty() && state_->waits.begin()->first.first <= state_->elapsed) {
            due.push_back(std::move(state_->waits.begin()->second));
            state_->waits.erase(state_->waits.begin());
        }
    }
    for (auto& wake : due) wake(true);
}

std::size_t ManualClock::waiting() const {
    const std::lock_guard lock(state_->mutex);
    return state_->waits.size();
}

std::optional<Duration> ManualClock::nextDue() const {
    const std::lock_guard lock(state_->mutex);
    if (state_->waits.empty()) return std::nullopt;
    return state_->waits.begin()->first.first - state_->elapsed;
}

bool ManualClock::isDueIn(Duration duration) const {
    const std::lock_guard lock(state_->mutex);
    const auto due = state_->elapsed + duration;
    const auto found = state_->waits.lower_bound({due, 0});
    return found != state_->waits.end() && found->first.first == due;
}

}
