#pragma once

#include "base/Date.h"
#include "records/MessageFiles.h"
#include "records/MessageRecord.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace velmo {

class StoreConnection;

/// What only this machine knows of a message: it follows the message to another mailbox, or to another number.
struct Keepsake {
    std::int64_t id = 0; ///< 0 when the message is still where it was
    BodyKey place;       ///< where the message stood
    bool hasBody = false;
    std::string snippet;
    std::string categoryRaw;
    std::string labelsJoined;
    std::optional<std::string> summary;
    std::optional<std::string> translation;
    std::optional<std::string> translationLanguage;
    std::optional<bool> isSeen; ///< a change that the server has not heard of
    std::optional<bool> isFlagged;

    static Keepsake of(const MessageRecord& record);

    /// Hands everything over but the flags and the body.
    void giveTo(MessageRecord& record) const;
};

/// Keepsakes of messages that have left their mailbox, until they are met again or their time is over. A message is
/// met again where the server said that it would be (RFC 4315, COPYUID), or where one with its Message-ID, date, size,
/// sender and subject appears. Part of a ModelContext.
class KeepsakeTable {
  public:
    explicit KeepsakeTable(StoreConnection& connection) : connection_(connection) {}

    /// Where a message went, as far as the server told.
    struct Target {
        std::string path;
        std::int64_t uidValidity = 0;     ///< 0: unknown
        std::optional<std::int64_t> uid;  ///< of the message
        std::optional<std::int64_t> from; ///< the lowest UID that it can have
    };

    /// Messages that were moved to a mailbox and not met there yet.
    struct Expected {
        std::vector<std::uint32_t> uids; ///< ascending
        std::uint32_t from = 0;          ///< the lowest UID of those whose UID is unknown; 0: there are none
        std::int64_t uidValidity = 0;    ///< of those UIDs; 0: unknown
    };

    /// Keeps what is known of a message that is about to be removed; absent when nobody could tell that it is met
    /// again.
    std::optional<Keepsake> keep(std::int64_t message, Date now, const std::optional<Target>& target = {});

    /// The same for all messages of a mailbox.
    std::vector<Keepsake> keepAll(const MailboxKey& mailbox, Date now);

    /// Those that were moved last, where the mailbox was numbered anew in between.
    Expected expectedIn(const MailboxKey& mailbox);

    /// What fits the message, which is not stored yet. It is kept no more.
    std::optional<Keepsake> take(const MessageRecord& record);

    /// The same from a message that stands in another mailbox of the account; that one keeps it as well.
    std::optional<Keepsake> copyOf(const MessageRecord& record);

    /// Those that were kept before; they are gone.
    std::vector<Keepsake> expire(Date before);

    bool isEmpty();
    void removeAll(const UUID& accountID);

  private:
    StoreConnection& connection_;
};

}
