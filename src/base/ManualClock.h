#pragma once

#include "base/Clock.h"

#include <memory>

namespace velmo {

/// A clock that stands still until it is told to move: the double of `SystemClock` for tests.
class ManualClock final : public Clock {
  public:
    explicit ManualClock(Date start = Date{std::chrono::sys_days{std::chrono::year{2026} / 1 / 1}});
    ~ManualClock() override;

    Date now() const override;
    Instant instant() const override;
    Async<void> wait(Duration duration) override;

    /// Moves time on, and ends every wait that falls due, the earliest first.
    void advance(Duration duration);

    /// Number of waits that have not ended.
    std::size_t waiting() const;

    /// Time until the earliest wait falls due; absent when nobody waits.
    std::optional<Duration> nextDue() const;

    /// Whether a wait falls due after exactly this time.
    bool isDueIn(Duration duration) const;

  private:
    struct State;
    std::shared_ptr<State> state_;
};

}
