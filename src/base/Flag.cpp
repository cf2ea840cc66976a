#include "base/Flag.h"

#include <boost/asio/as_tuple.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/use_awaitable.hpp>

namespace velmo {

namespace asio = boost::asio;

/// The timer never goes off by itself; moving its time wakes those who wait.
struct Flag::State {
    explicit State(const Executor& executor) : timer(executor, asio::steady_timer::time_point::max()) {}
    asio::steady_timer timer;
};

Flag::Flag(const Executor& executor) : state_(std::make_unique<State>(executor)) {}

Flag::~Flag() = default;

void Flag::raise() {
    state_->timer.expires_at(asio::steady_timer::time_point::min());
}

void Flag::lower() {
    state_->timer.expires_at(asio::steady_timer::time_point::max());
}

Async<void> Flag::wait() {
    co_await state_->timer.async_wait(asio::as_tuple(asio::use_awaitable));
    co_await checkCancellation();
}

}
