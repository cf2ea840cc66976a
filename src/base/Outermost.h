#pragma once

#include "base/Async.h"

#include <boost/asio/execution_context.hpp>
#include <cstddef>
#include <list>
#include <memory>
#include <mutex>

namespace velmo::detail {

/// The coroutines of an execution context that no other coroutine waits for. A Runtime ends by cancelling them and
/// letting them come to their end; merely dropped, a frame would let go of executors of contexts that are gone by then.
/// Every operation may be called from any thread.
class OutermostCoroutines : public boost::asio::execution_context::service {
  public:
    using key_type = OutermostCoroutines;
    static boost::asio::execution_context::id id;

    explicit OutermostCoroutines(boost::asio::execution_context& context);

    /// Those of the context behind `executor`.
    static OutermostCoroutines& of(const Executor& executor);

    /// A coroutine's place among them, which is given up when the coroutine has ended or will never run.
    using Place = std::shared_ptr<void>;

    /// Takes a coroutine in. `cancel` asks it to end; it is called once at most, from any thread.
    Place enter(std::function<void()> cancel);

    /// Asks all of them to end that have not been asked yet; true when there were any that are still here.
    bool cancelAll();

  private:
    struct State;

    void shutdown() override {}

    std::shared_ptr<State> state_;
};

}
