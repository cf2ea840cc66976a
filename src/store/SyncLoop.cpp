#include "store/SyncLoop.h"

#include "base/UserError.h"
#include "platform/Log.h"

#include <algorithm>
#include <optional>

namespace velmo {

Duration backOff(int failures) {
    constexpr Duration longest{900'000};
    constexpr Duration shortest{30'000};
    constexpr int enoughForLongest = 7;
    if (failures >= enoughForLongest) return longest;
    return std::min(longest, shortest * (1 << (std::max(failures, 1) - 1)));
}

Duration listeningTime(Duration sincePass) {
    return std::max(passInterval - sincePass, shortestIdle);
}

namespace {

/// How the mailbox was when it was last synced.
IMAPSelectedState stateOf(const MailboxRecord& record) {
    IMAPSelectedState state;
    state.exists = record.totalCount;
    state.uidValidity = static_cast<std::uint32_t>(record.uidValidity);
    state.uidNext = static_cast<std::uint32_t>(record.uidNext);
    if (record.highestModSeq != 0) state.highestModSeq = static_cast<std::uint64_t>(record.highestModSeq);
    return state;
}

class SyncLoop {
  public:
    SyncLoop(std::weak_ptr<AccountSync> sync, std::shared_ptr<Clock> clock, MailAccount account)
        : sync_(std::move(sync)), clock_(std::move(clock)), account_(std::move(account)) {}

    Async<void> run() {
        for (;;) {
            co_await checkCancellation();
            const Duration pause = co_await turn();
            if (sync_.expired()) co_return;
            if (pause > Duration{0}) co_await clock_->wait(pause);
        }
    }

  private:
    /// Gives the wait before the next turn. The sync object is held only here.
    Async<Duration> turn() {
        const std::shared_ptr<AccountSync> sync = sync_.lock();
        if (!sync) co_return Duration{0};
        if (!lastFullPass_ || clock_->instant() - *lastFullPass_ >= passInterval) {
            co_await sync->othersPassEnded(account_.id);
            co_await sync->syncAccount(account_);
            if (sync->status().of(account_.id).kind == SyncStatus::Kind::failed) {
                ++failures_;
                co_return backOff(failures_);
            }
            lastFullPass_ = clock_->instant();
            failures_ = 0;
        }
        const auto inbox = sync->directory().mailbox(MailboxRole::inbox, account_.id);
        if (!inbox) {
            lastFullPass_.reset();
            co_return passInterval;
        }
        co_await listen(*sync, *inbox);
        co_return Duration{0};
    }

    Async<void> listen(AccountSync& sync, MailboxRecord record) {
        const std::string inbox = record.path;
        const auto since = std::chrono::floor<Duration>(clock_->instant() - *lastFullPass_);
        const std::shared_ptr<SyncEngine> engine = sync.engines().engine(account_);
        bool hasChanged = false;
        std::exception_ptr failure;
        try {
            hasChanged = co_await engine->waitForChanges(inbox, stateOf(record), listeningTime(since));
        } catch (...) {
            failure = std::current_exception();
        }
        if (isCancellation(failure)) std::rethrow_exception(failure);
        if (failure) {
            log("Mail").info("Waiting for new mail failed: {}", pub(sentenceOf(failure)));
            ++failures_;
            co_await clock_->wait(backOff(failures_));
        } else if (hasChanged) {
            co_await clock_->wait(burstWait);
            failures_ = 0;
        } else {
            co_return;
        }
        co_await sync.syncInbox(account_, inbox);
    }

    std::weak_ptr<AccountSync> sync_;
    std::shared_ptr<Clock> clock_;
    MailAccount account_;
    std::optional<Instant> lastFullPass_;
    int failures_ = 0;
};

}

Async<void> runSyncLoop(std::weak_ptr<AccountSync> sync, std::shared_ptr<Clock> clock, MailAccount account) {
    SyncLoop loop(std::move(sync), std::move(clock), std::move(account));
    co_await loop.run();
}

}
