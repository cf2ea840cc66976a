#pragma once

#include "base/UUID.h"
#include "records/MailboxRecord.h"

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace velmo {

class StoreConnection;

/// A flag that a person changes.
enum class PersonalFlag : std::uint8_t { seen, flagged };

/// As servers call it (RFC 3501 §2.3.2).
std::string_view serverNameOf(PersonalFlag flag);

/// A flag that is shown with another value than the server may have.
struct UnsentFlag {
    std::int64_t message = 0; ///< id of its record
    PersonalFlag flag = PersonalFlag::seen;
    bool value = false;       ///< which is shown
    bool serverValue = false; ///< which the server had when it was last heard of

    friend bool operator==(const UnsentFlag&, const UnsentFlag&) = default;
};

/// Changes of flags of which no server has confirmed that it knows them; they outlive the process. They go with the
/// record of their message. Part of a ModelContext.
class UnsentFlagTable {
  public:
    explicit UnsentFlagTable(StoreConnection& connection) : connection_(connection) {}

    /// The flag is shown with this value from this commit on, and had the other before.
    void note(std::int64_t message, PersonalFlag flag, bool value);

    /// The same for a message whose flag the server has as `serverValue`.
    void put(const UnsentFlag& unsent);

    /// The flag is shown as the server has it.
    void settle(std::int64_t message, PersonalFlag flag);

    bool isUnsent(std::int64_t message);

    /// How many more messages of the mailbox are shown as unread than the server has; negative for fewer.
    std::int64_t unreadDifference(const MailboxKey& mailbox);

    /// By message.
    std::vector<UnsentFlag> of(const UUID& accountID);

    /// Puts the values that are shown in the place of those that the server told, which are noted. True when it told
    /// others.
    bool correct(const MailboxKey& mailbox, std::map<std::uint32_t, std::set<std::string>>& flags);

  private:
    StoreConnection& connection_;
};

}
