#pragma once

#include "base/Async.h"
#include "base/UUID.h"

#include <functional>
#include <map>
#include <memory>

namespace velmo {

/// Work in the background that keeps its order: one lane per account, one piece of work of a lane at a time. Lives on
/// the executor on which the work runs. Dropping it cancels what is under way, and forgets the rest.
class CommandLanes {
  public:
    /// A piece of work deals with its own failures; one that comes out of it is logged.
    using Work = std::move_only_function<Async<void>()>;

    explicit CommandLanes(Executor executor) : executor_(std::move(executor)) {}

    /// Never starts the work inside this call.
    void add(const UUID& accountID, Work work);

    bool isIdle() const;

    /// Waits until there is no work left, also none that is added meanwhile.
    Async<void> finished();

  private:
    struct Lane;

    Executor executor_;
    std::map<UUID, std::shared_ptr<Lane>> lanes_;
};

}
