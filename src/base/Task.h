#pragma once

#include "base/Async.h"

#include <functional>
#include <memory>

namespace velmo {

/// A cancellable coroutine in the background. Dropping the handle cancels it and does not wait, so the body owns what
/// it uses. Every operation may be called from any executor.
class Task {
  public:
    /// Not started; behaves as one that has ended.
    Task() = default;

    /// Starts `body` on `executor`, never inside this call. A failure is kept for `finished`.
    Task(const Executor& executor, std::move_only_function<Async<void>()> body);

    Task(Task&&) noexcept = default;
    Task& operator=(Task&& other) noexcept;
    ~Task();

    /// Asks the body to end: its present or next wait ends with a cancellation. Does nothing once it has ended.
    void cancel();

    bool isFinished() const;

    /// Waits until the body has ended, and throws what it threw; a cancelled body counts as a quiet end.
    Async<void> finished();

  private:
    struct State;
    std::shared_ptr<State> state_;
};

}
