#pragma once

#include "base/Async.h"
#include "base/Clock.h"
#include "base/Date.h"
#include "base/Observed.h"
#include "platform/NetworkPath.h"

#include <memory>
#include <optional>

namespace velmo {

/// Whether the machine is online, and since when again. Lives on the main executor for as long as the process; it
/// steers no connection, it only tells people and the outbox why one failed.
class NetworkMonitor {
  public:
    /// Starts the path, which is told to nobody else. `clock` and `path` outlive the monitor.
    NetworkMonitor(Executor main, Clock& clock, NetworkPath& path);
    NetworkMonitor(const NetworkMonitor&) = delete;
    NetworkMonitor& operator=(const NetworkMonitor&) = delete;

    /// Taken for granted until the path says otherwise.
    Observed<bool> isOnline{true};

    /// The last change from offline to online; set before `isOnline`.
    Observed<std::optional<Date>> cameBackAt;

  private:
    void update(bool isSatisfied);

    Clock& clock_;
    /// Goes with the monitor, so that a notice that is on its way finds out.
    std::shared_ptr<NetworkMonitor*> self_;
};

}
