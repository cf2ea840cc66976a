#pragma once

#include "base/Task.h"
#include "store/StoreEnvironment.h"
#include "store/StoreStatus.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>

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

    /// Of the step that can be undone; absent when there is none.
    std::optional<std::string> title() const { return step_ ? std::optional(title_) : std::nullopt; }

  private:
    std::optional<Step> end();
    void commitIfStill(const UUID& banner);

    StoreEnvironment& environment_;
    StoreStatus& status_;
    std::optional<Step> step_;
    std::string title_;
    UUID banner_; ///< of the step
    Task timer_;
};

}
