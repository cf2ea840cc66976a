#pragma once

#include "base/Async.h"

#include <memory>

namespace velmo {

/// Tells when a descriptor can be read. It stays as blocking as it is, also for the programs that share it.
class Readiness {
  public:
    /// Waits on `executor`; the descriptor outlives this.
    Readiness(const Executor& executor, int descriptor);
    ~Readiness();

    Async<void> wait();

  private:
    struct State;
    std::unique_ptr<State> state_;
};

}
