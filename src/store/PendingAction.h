#pragma once

#include "base/Task.h"
#include "store/StoreEnvironment.h"
#include "store/StoreStatus.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace velmo {

/// The one action that can still be undone. It is carried out when its five seconds are over, when the next one
/// begins, or when it is told to. Lives on the main executor; made by `std::make_shared`.
class PendingAction : public std::enable_shared_from_this<PendingAction> {
  public:
    /// Exactly one of the two is called, once; none when this is dropped before.
    struct Step {
        std::function<void()> commit;
        std::function<void()> undo;
    };

    /// Both outlive this.
    PendingAction(StoreEnvironment& environment, StoreStatus& status) : environment_(environment), status_(status) {}

    /// Shows a banner with this title, as long as the step can be undone.
    void begin(const std::string& title, Step step);

    void commit();
    void undo();

    enum class Ending { carriedOut, undone };
    /// The title of the last step that ended, and how; absent when none has.
    const std::optional<std::pair<std::string, Ending>>& ended() const { return ended_; }

    /// Of the step that can be undone; absent when there is none.
    std::optional<std::string> title() const { return step_ ? std::optional(title_) : std::nullopt; }

  private:
    std::optional<Step> end(Ending ending);
    void commitIfStill(const UUID& banner);

    StoreEnvironment& environment_;
    StoreStatus& status_;
    std::optional<Step> step_;
    std::string title_;
    std::optional<std::pair<std::string, Ending>> ended_;
    UUID banner_; ///< of the step
    Task timer_;
};

}
