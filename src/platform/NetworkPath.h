#pragma once

#include "base/Async.h"

#include <functional>
#include <memory>

namespace velmo {

/// Tells whether the machine has a usable way to other machines.
class NetworkPath {
  public:
    using Handler = std::function<void(bool isSatisfied)>;

    virtual ~NetworkPath() = default;

    /// Calls `handler` with the state of now, soon, and with the new state after each change of the network; the same
    /// state may come twice. Called once. The handler is called on an executor of the path's own, one call at a time,
    /// and may be called once more while the path is going away.
    virtual void start(Handler handler) = 0;
};

/// The kernel's own notice of links, addresses and routes (rtnetlink(7)). A path is usable when a running interface
/// other than the loopback has an address that is not link-local. Where the kernel does not tell, there is a path.
std::unique_ptr<NetworkPath> systemNetworkPath(const Executor& io);

/// A path whose state a test decides.
class MemoryNetworkPath final : public NetworkPath {
  public:
    void start(Handler handler) override { handler_ = std::move(handler); }
    void report(bool isSatisfied) {
        if (handler_) handler_(isSatisfied);
    }

  private:
    Handler handler_;
};

}
