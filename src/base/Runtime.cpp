#include "base/Runtime.h"

#include "base/Outermost.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <boost/asio/bind_cancellation_slot.hpp>
#include <boost/asio/cancellation_signal.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/asio/thread_pool.hpp>
#include <chrono>
#include <csignal>
#include <thread>

namespace velmo {

namespace asio = boost::asio;

namespace {

/// What has not ended by then after it was asked to is broken.
constexpr auto endingTime = std::chrono::seconds(30);

}

struct Runtime::State {
    /// Lets every task end; false when one doesn't.
    bool endTasks();

    asio::io_context main;
    asio::io_context io;
    asio::thread_pool background{2};
    asio::executor_work_guard<asio::io_context::executor_type> ioWork{io.get_executor()};
    asio::cancellation_signal signal;
    asio::signal_set signals{io};
    std::atomic<bool> interrupted = false;
    std::jthread ioThread;
    Executors executors;
};

Runtime::Runtime() : state_(std::make_unique<State>()) {
    // A peer that closes its end must not end the process.
    std::signal(SIGPIPE, SIG_IGN);
    state_->executors = {state_->main.get_executor(), state_->io.get_executor(), state_->background.get_executor()};
    state_->ioThread = std::jthread([this] { state_->io.run(); });
}

Runtime::~Runtime() {
    const bool haveEnded = state_->endTasks();
    state_->io.stop();
    state_->background.stop();
    state_->ioThread.join();
    state_->background.join();
    // A frame may hold executors of each context, so none of them can go before it.
    if (!haveEnded) static_cast<void>(state_.release());
}

bool Runtime::State::endTasks() {
    const std::array executorsOfAll{executors.main, executors.io, executors.background};
    const auto work = asio::make_work_guard(main);
    const auto limit = std::chrono::steady_clock::now() + endingTime;
    const auto isAnyHere = [](const Executor& each) { return detail::cancelOutermost(each); };
    while (std::ranges::count_if(executorsOfAll, isAnyHere) > 0) {
        if (std::chrono::steady_clock::now() > limit) return false;
        main.restart();
        main.run_one_for(std::chrono::milliseconds(1));
    }
    return true;
}

const Executors& Runtime::executors() const {
    return state_->executors;
}

void Runtime::cancel() {
    asio::post(state_->main, [this] { state_->signal.emit(asio::cancellation_type::terminal); });
}

void Runtime::cancelOnSignals() {
    state_->signals.add(SIGINT);
    state_->signals.add(SIGTERM);
    state_->signals.async_wait([this](const boost::system::error_code& error, int) {
        if (error) return;
        state_->interrupted = true;
        boost::system::error_code ignored;
        state_->signals.clear(ignored);
        cancel();
    });
}

bool Runtime::wasInterrupted() const {
    return state_->interrupted;
}

void Runtime::runBody(detail::Body body) {
    std::exception_ptr failure;
    bool ended = false;
    auto guard = [&body] { return detail::guarded(std::move(body)); };
    asio::co_spawn(state_->main, std::move(guard),
                   asio::bind_cancellation_slot(state_->signal.slot(), [&](std::exception_ptr error) {
                       failure = error;
                       ended = true;
                   }));
    const auto work = asio::make_work_guard(state_->main);
    state_->main.restart();
    while (!ended) state_->main.run_one();
    if (failure) std::rethrow_exception(failure);
}

}
