#include "base/Outermost.h"

#include <boost/asio/execution/context.hpp>
#include <vector>

namespace velmo::detail {

namespace asio = boost::asio;

asio::execution_context::id OutermostCoroutines::id;

struct OutermostCoroutines::State {
    std::mutex mutex;
    std::list<std::function<void()>> cancels; ///< empty once it has been called
};

OutermostCoroutines::OutermostCoroutines(asio::execution_context& context)
    : asio::execution_context::service(context), state_(std::make_shared<State>()) {}

OutermostCoroutines& OutermostCoroutines::of(const Executor& executor) {
    return asio::use_service<OutermostCoroutines>(asio::query(executor, asio::execution::context));
}

OutermostCoroutines::Place OutermostCoroutines::enter(std::function<void()> cancel) {
    const std::lock_guard lock(state_->mutex);
    const auto at = state_->cancels.insert(state_->cancels.end(), std::move(cancel));
    return {nullptr, [state = state_, at](std::nullptr_t) {
                std::function<void()> dropped; // outside the lock
                const std::lock_guard within(state->mutex);
                dropped = std::move(*at);
                state->cancels.erase(at);
            }};
}

bool OutermostCoroutines::cancelAll() {
    std::vector<std::function<void()>> untold;
    bool isAnyHere = false;
    {
        const std::lock_guard lock(state_->mutex);
        isAnyHere = !state_->cancels.empty();
        for (auto& cancel : state_->cancels)
            if (auto told = std::exchange(cancel, {})) untold.push_back(std::move(told));
    }
    for (const auto& cancel : untold) cancel();
    return isAnyHere;
}

}
