#pragma once

#include "base/Async.h"
#include "base/Clock.h"

#include <functional>
#include <memory>
#include <optional>

namespace boost::asio {
class cancellation_signal;
}

namespace velmo {

/// Ends an operation that outlasts its limit. One wait of the clock serves many operations: a busy stream arms its
/// watchdog thousands of times for each wait that is started, so that guarding an operation costs next to nothing.
/// Everything runs on one serial executor.
class Watchdog : public std::enable_shared_from_this<Watchdog> {
  public:
    /// `onExpiry` ends the operation. `clock` lives until `stop`.
    Watchdog(Executor executor, Clock& clock, std::function<void()> onExpiry);
    ~Watchdog();
    Watchdog(const Watchdog&) = delete;
    Watchdog& operator=(const Watchdog&) = delete;

    /// Starts to watch an operation.
    void arm(Duration limit);

    /// The operation has ended; true when its limit had passed.
    bool disarm();

    /// Lets go of the clock.
    void stop();

  private:
    Async<void> watch();

    Executor executor_;
    Clock& clock_;
    std::function<void()> onExpiry_;
    std::unique_ptr<boost::asio::cancellation_signal> wake_;
    std::optional<Instant> deadline_; ///< of the operation that runs
    Duration limit_{0};
    bool isWatching_ = false;
    bool hasExpired_ = false;
};

}
