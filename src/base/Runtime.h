#pragma once

#include "base/Async.h"

#include <memory>

namespace velmo {

/// The threads of a program without a window: the main executor runs on the thread that calls `run`, sockets on one
/// thread (two would hand each connection back and forth), CPU work on two. Dropping it cancels every task that still
/// runs, and waits for its end.
class Runtime {
  public:
    Runtime();
    ~Runtime();
    Runtime(const Runtime&) = delete;
    Runtime& operator=(const Runtime&) = delete;

    const Executors& executors() const;

    /// Runs `operation` (a callable that gives an `Async<T>`) on the main executor until it ends, on this thread.
    template <class F>
    detail::ResultOf<F> run(F operation) {
        using T = detail::ResultOf<F>;
        if constexpr (std::is_void_v<T>) {
            runBody([&operation]() -> Async<void> { co_await operation(); });
        } else {
            std::optional<T> result;
            runBody([&operation, &result]() -> Async<void> { result.emplace(co_await operation()); });
            return std::move(*result);
        }
    }

    /// Asks the running operation to end. May be called from any thread; from a signal handler it may not.
    void cancel();

    /// Cancels the running operation upon the first SIGINT or SIGTERM, as long as this Runtime lives. A second one
    /// ends the process, as if nobody had asked.
    void cancelOnSignals();

    /// True when a signal has cancelled the operation.
    bool wasInterrupted() const;

  private:
    void runBody(detail::Body body);

    struct State;
    std::unique_ptr<State> state_;
};

}
