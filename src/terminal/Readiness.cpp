#include "terminal/Readiness.h"

#include <boost/asio/as_tuple.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <sys/epoll.h>

namespace velmo {

namespace asio = boost::asio;

/// What is waited for is an epoll set around the descriptor: to wait for the descriptor itself would make it
/// non-blocking.
struct Readiness::State {
    explicit State(const Executor& executor) : set(executor) {}

    asio::posix::stream_descriptor set;
    bool isNeeded = false;
};

Readiness::Readiness(const Executor& executor, int descriptor) : state_(std::make_unique<State>(executor)) {
    const int number = epoll_create1(EPOLL_CLOEXEC);
    if (number < 0) return;
    epoll_event event{};
    event.events = EPOLLIN;
    // A plain file is not taken: it can always be read.
    state_->isNeeded = epoll_ctl(number, EPOLL_CTL_ADD, descriptor, &event) == 0;
    state_->set.assign(number);
}

Readiness::~Readiness() = default;

Async<void> Readiness::wait() {
    if (state_->isNeeded)
        co_await state_->set.async_wait(asio::posix::stream_descriptor::wait_read, asio::as_tuple(asio::use_awaitable));
    co_await checkCancellation();
}

}
