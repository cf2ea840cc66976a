#include "base/Outermost.h"

#include <boost/asio/execution/context.hpp>
#include <boost/asio/execution_context.hpp>
#include <list>
#include <mutex>
#include <utility>
#include <vector>

namespace velmo::detail {

namespace asio = boost::asio;

namespace {

/// Lives as long as the context.
class OutermostCoroutines : public asio::execution_context::service {
  public:
    using key_type = OutermostCoroutines;
    static asio::execution_context::id id;

    struct State {
        std::mutex mutex;
        std::list<std::function<void()>> cancels; ///< empty once it has been called
    };

    explicit OutermostCoroutines(asio::execution_context& context) : asio::execution_context::service(context) {}

    static const std::shared_ptr<State>& of(const Executor& executor) {
        auto& context = asio::query(executor, asio::execution::context);
        return asio::use_service<OutermostCoroutines>(context).state_;
    }

  private:
    void shutdown() override {}

    std::shared_ptr<State> state_ = std::make_shared<State>();
};

asio::execution_context::id OutermostCoroutines::id;

}

OutermostPlace enterOutermost(const Executor& executor, std::function<void()> cancel) {
    const auto& state = OutermostCoroutines::of(executor);
    const std::lock_guard lock(state->mutex);
    const auto at = state->cancels.insert(state->cancels.end(), std::move(cancel));
    return {nullptr, [state, at](std::nullptr_t) {
                std::function<void()> dropped; // outside the lock
                const std::lock_guard within(state->mutex);
                dropped = std::move(*at);
                state->cancels.erase(at);
            }};
}

bool cancelOutermost(const Executor& executor) {
    const auto& state = OutermostCoroutines::of(executor);
    std::vector<std::function<void()>> untold;
    bool isAnyHere = false;
    {
        const std::lock_guard lock(state->mutex);
        isAnyHere = !state->cancels.empty();
        for (auto& cancel : state->cancels)
            if (auto told = std::exchange(cancel, {})) untold.push_back(std::move(told));
    }
    for (const auto& cancel : untold) cancel();
    return isAnyHere;
}

}
