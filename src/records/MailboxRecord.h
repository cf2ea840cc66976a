#pragma once

#include "base/Date.h"
#include "base/UUID.h"
#include "protocols/IMAPMailbox.h"
#include "protocols/MailboxRole.h"

#include <compare>
#include <cstdint>
#include <optional>
#include <string>

namespace velmo {

/// Names one mailbox of one account.
struct MailboxKey {
    UUID accountID;
    std::string path;

    friend auto operator<=>(const MailboxKey&, const MailboxKey&) = default;
    friend bool operator==(const MailboxKey&, const MailboxKey&) = default;
};

/// One mailbox of an account, as the server last described it. Unique by account and path.
struct MailboxRecord {
    UUID accountID;
    std::string path;
    std::string name; ///< what a person sees
    std::optional<std::string> delimiter;
    std::string roleRaw;
    bool isSelectable = true;
    std::int64_t unreadCount = 0;
    std::int64_t totalCount = 0;
    std::int64_t uidValidity = 0; ///< 0: never synced
    std::int64_t uidNext = 0;
    std::int64_t highestModSeq = 0;   ///< 0: unknown
    std::int64_t oldestSyncedUID = 0; ///< lowest UID held, where the backfill goes on; 0: none
    std::optional<Date> lastSynced;   ///< end of the last successful sync

    /// `other` when the raw text is no role.
    MailboxRole role() const;
    MailboxKey key() const { return {accountID, path}; }

    /// Takes over what a listing tells: name, delimiter, role, whether it can be selected, and the two counts.
    /// The path and the numbers of the sync stay.
    void applyListing(const IMAPMailbox& listed, std::int64_t messages, std::int64_t unseen);

    friend bool operator==(const MailboxRecord&, const MailboxRecord&) = default;
};

/// The path under which a mailbox is kept: INBOX is one mailbox in any case (RFC 3501 §5.1), all others are as sent.
std::string canonicalMailboxPath(std::string path);

}
