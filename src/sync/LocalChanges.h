#pragma once

#include "records/MailboxRecord.h"
#include "records/UnsentFlagTable.h"
#include "sync/MailboxDelta.h"

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

namespace velmo {

/// What the person has changed on this machine, for as long as an answer of the server may not show it: the server
/// hears of a change after it is shown, and a sync may have asked before it heard. Without this such an answer would
/// take the change back until the next sync. May be used from any executor; made by `std::make_shared`.
class LocalChanges : public std::enable_shared_from_this<LocalChanges> {
  public:
    using Flag = PersonalFlag;

    /// What is asked of the server about mailboxes, from before the question until the answer is stored. To be used
    /// inside the transaction that stores it, so that no change comes between.
    class Reading {
      public:
        Reading(std::shared_ptr<LocalChanges> changes, std::uint64_t begun)
            : changes_(std::move(changes)), begun_(begun) {}
        ~Reading() { changes_->end(begun_); }
        Reading(const Reading&) = delete;
        Reading& operator=(const Reading&) = delete;

        /// Gives the flags that were changed meanwhile the values that are shown. True when the answer had others: it
        /// has to be asked for again, since somebody else may have changed them after this machine.
        bool correct(MailboxDelta& delta, const MailboxKey& mailbox) const;

        /// Whether the number of unread messages that is shown knows of changes that the answer may not have seen.
        bool precedesCount(const MailboxKey& mailbox) const;

        /// UIDs of the messages that are about to leave the mailbox, which nobody counts any more.
        std::vector<std::uint32_t> leaving(const MailboxKey& mailbox) const;

      private:
        std::shared_ptr<LocalChanges> changes_;
        std::uint64_t begun_;
    };

    std::shared_ptr<const Reading> beginReading();

    /// A flag is shown with this value from the next commit on.
    void changeFlag(const MailboxKey& mailbox, std::uint32_t uid, Flag flag, bool value);
    /// The server has these flags as they are shown, as far as anybody knows.
    void settleFlags(const MailboxKey& mailbox, std::span<const std::uint32_t> uids, Flag flag);

    /// Messages are hidden, and counted no more.
    void beginLeaving(const MailboxKey& mailbox, std::span<const std::uint32_t> uids);
    /// They have left, or are shown again.
    void endLeaving(const MailboxKey& mailbox, std::span<const std::uint32_t> uids);

  private:
    struct Change {
        bool value = false;
        std::optional<std::uint64_t> settled; ///< absent: on the way
    };
    using Key = std::pair<std::uint32_t, Flag>;
    struct Mailbox {
        std::map<Key, Change> flags;
        std::set<std::uint32_t> leaving;
        std::uint64_t lastCounted = 0; ///< when the number of unread messages changed last
    };

    void end(std::uint64_t begun);
    void forgetWhatAllKnow();

    std::mutex mutex_;
    std::uint64_t time_ = 0; ///< moves on with each change
    std::multiset<std::uint64_t> readings_;
    std::map<MailboxKey, Mailbox> mailboxes_;
};

}
