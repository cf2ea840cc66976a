#pragma once

#include "store/ActionWrites.h"
#include "store/MessageGroups.h"
#include "store/StoreEnvironment.h"
#include "store/StoreStatus.h"

#include <cstdint>
#include <map>
#include <set>
#include <span>
#include <utility>

namespace velmo {

/// Messages on their way out of a mailbox, as this machine shows it: hidden, and no longer counted as unread. Lives on
/// the main executor. A database that refuses is logged; the next sync puts the rest right.
class LeavingMessages {
  public:
    /// All outlive this.
    LeavingMessages(StoreEnvironment& environment, StoreStatus& status, ActionWrites& writes)
        : status_(status), writes_(writes), local_(environment.writer.localChanges()) {}

    void hide(std::span<const MessageRecord> records);

    /// Shows those that still exist again.
    void putBack(const std::set<std::int64_t>& ids);

    /// They have left, and their records are gone.
    void haveLeft(const MessageGroup& group);

  private:
    enum class Count { leave, comeBack };
    void count(const std::set<std::int64_t>& ids, Count direction);
    void endLeaving(const std::set<std::int64_t>& ids);

    StoreStatus& status_;
    ActionWrites& writes_;
    LocalChanges& local_;
    std::map<std::int64_t, std::pair<MailboxKey, std::uint32_t>> places_; ///< of those that are leaving, by id
};

}
