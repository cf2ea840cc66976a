#include "store/CommandLanes.h"

#include "base/Task.h"
#include "base/UserError.h"
#include "platform/Log.h"

#include <algorithm>
#include <deque>
#include <utility>

namespace velmo {

namespace {

/// What the coroutine of a lane owns, so that the lane can go before it.
struct Waiting {
    std::deque<CommandLanes::Work> work;
    bool isRunning = false;
};

Async<void> runAll(std::shared_ptr<Waiting> waiting) {
    while (!waiting->work.empty()) {
        CommandLanes::Work work = std::move(waiting->work.front());
        waiting->work.pop_front();
        auto run = detail::caught(std::move(work));
        const std::exception_ptr failure = co_await std::move(run);
        const auto state = co_await cancellationState;
        if (isCancelled(state)) break;
        if (failure) log("Mail").error("A command has failed: {}", pub(sentenceOf(failure)));
    }
    waiting->isRunning = false;
}

}

struct CommandLanes::Lane {
    std::shared_ptr<Waiting> waiting = std::make_shared<Waiting>();
    Task runner;
};

void CommandLanes::add(const UUID& accountID, Work work) {
    auto& lane = lanes_[accountID];
    if (!lane) lane = std::make_shared<Lane>();
    lane->waiting->work.push_back(std::move(work));
    if (std::exchange(lane->waiting->isRunning, true)) return;
    lane->runner = Task(executor_, [waiting = lane->waiting] { return runAll(waiting); });
}

bool CommandLanes::isIdle() const {
    return std::ranges::none_of(lanes_, [](const auto& entry) { return entry.second->waiting->isRunning; });
}

Async<void> CommandLanes::finished() {
    while (!isIdle()) {
        const auto busy =
            std::ranges::find_if(lanes_, [](const auto& entry) { return entry.second->waiting->isRunning; });
        const auto lane = busy->second;
        co_await lane->runner.finished();
    }
}

}
