#pragma once

#include "protocols/MailboxRole.h"
#include "records/MailboxRecord.h"
#include "sync/MailboxDelta.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace velmo {

/// What a sync loop needs to know of a mailbox.
struct MailboxEntry {
    std::string path;
    MailboxRole role = MailboxRole::other;
    bool isSelectable = true;

    friend bool operator==(const MailboxEntry&, const MailboxEntry&) = default;
};

/// What is held of a mailbox.
struct SyncState {
    std::int64_t uidValidity = 0;   ///< 0: never synced
    std::int64_t uidNext = 0;       ///< 0: unknown
    std::int64_t highestModSeq = 0; ///< 0: unknown
    std::int64_t oldestSyncedUID = 0;
    std::vector<std::uint32_t> knownUIDs; ///< ascending
    std::vector<std::uint32_t> headless;  ///< some of those of which nothing but the UID could be had yet
    std::vector<std::uint32_t> arrived;   ///< ascending: what this machine moved there, and has not met yet
    std::uint32_t arrivedFrom = 0;        ///< the same where only the lowest UID is known; 0: nothing
    std::int64_t arrivedUIDValidity = 0;  ///< of both; 0: unknown
    /// Nothing else is held of it than what this machine moved there.
    bool isPartial = false;

    /// False when a sync would bring nothing.
    bool isWanted() const { return !isPartial || !knownUIDs.empty() || !arrived.empty() || arrivedFrom != 0; }

    friend bool operator==(const SyncState&, const SyncState&) = default;
};

/// Messages that have left a mailbox at the person's command.
struct LeftMessages {
    MailboxKey mailbox;
    std::int64_t uidValidity = 0;
    std::vector<std::int64_t> ids;
    std::vector<std::uint32_t> uids;        ///< in the order of the ids
    std::optional<std::string> destination; ///< a path; absent: they are deleted for good
    std::int64_t targetUIDValidity = 0;
    std::map<std::uint32_t, std::uint32_t> targetUIDs; ///< where the server told them (RFC 4315), by UID
    std::uint32_t targetFrom = 0;                      ///< the lowest UID that they can have there; 0: unknown
};

/// Whether new mail gets the label of its category.
enum class LabelNewMail { no, yes };

/// What a delta brought.
struct AppliedDelta {
    /// True when a person should be told of the new mail: it came into an inbox that had been filled before.
    bool countsAsNews = false;
    /// The messages that were not held before and are unseen, newest first.
    std::vector<SyncedMessage> unseen;
};

}
