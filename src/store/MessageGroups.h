#pragma once

#include "records/MessageRecord.h"

#include <cstdint>
#include <set>
#include <span>
#include <vector>

namespace velmo {

/// Messages of one mailbox under one numbering: what one command to a server can name.
struct MessageGroup {
    MailboxKey mailbox;
    std::int64_t uidValidity = 0;
    std::vector<std::int64_t> ids;
    std::vector<std::uint32_t> uids; ///< in the order of the ids
};

/// Every message stands in one group. A group is small enough for the longest line that servers take (RFC 9051 §4.3.1
/// speaks of 8,192 octets). A record whose UID is no message number (RFC 3501 §9) is left out.
std::vector<MessageGroup> grouped(std::span<const MessageRecord> records);

std::set<std::int64_t> idsOf(std::span<const MessageRecord> records);

}
