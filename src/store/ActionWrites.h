#pragma once

#include "records/ModelContext.h"
#include "store/CommandLanes.h"
#include "store/StoreEnvironment.h"

#include <functional>
#include <memory>

namespace velmo {

/// What actions write into the mail store, without ever waiting for somebody else's write on the main executor. Lives
/// there; made by `std::make_shared`. A database that refuses is logged; then nothing of that work is stored.
class ActionWrites : public std::enable_shared_from_this<ActionWrites> {
  public:
    using Work = std::function<void(ModelContext&)>;

    /// `environment` outlives this.
    explicit ActionWrites(StoreEnvironment& environment)
        : environment_(environment), waiting_(environment.executors.main) {}

    /// Runs `work` as one commit: at once, or, while another connection writes or other work waits, on the writer's
    /// strand in the order of the calls. `then` is called on the main executor behind it, also when it failed.
    void run(Work work, std::function<void()> then = {});

    bool isIdle() const { return waiting_.isIdle(); }
    Async<void> finished() { return waiting_.finished(); }

  private:
    bool runAtOnce(const Work& work);
    static Async<void> runLater(std::weak_ptr<ActionWrites> weak, Work work, std::function<void()> then);

    StoreEnvironment& environment_;
    CommandLanes waiting_; ///< one lane
};

}
