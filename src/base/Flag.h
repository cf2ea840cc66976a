#pragma once

#include "base/Async.h"

#include <memory>

namespace velmo {

/// A flag that coroutines wait for. Every operation belongs to one executor that runs one thing at a time.
class Flag {
  public:
    explicit Flag(const Executor& executor);
    ~Flag();
    Flag(const Flag&) = delete;
    Flag& operator=(const Flag&) = delete;

    /// Ends every wait, also those that begin later, until the flag is lowered.
    void raise();
    void lower();

    /// Ends when the flag is raised; it may also end early, so the caller looks again at what it waits for. Throws
    /// `Cancelled` when the waiting coroutine is cancelled.
    Async<void> wait();

  private:
    struct State;
    std::unique_ptr<State> state_;
};

}
