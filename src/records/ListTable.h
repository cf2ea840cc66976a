#pragma once

#include "records/MessageWalk.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velmo {

class StoreConnection;

/// What a list needs of a message to know whether it shows it.
struct ListedMessage {
    MessagePlace place;
    MailboxKey mailbox;
    bool isSeen = false;
    bool isOther = false; ///< not of InboxFocus::important
    std::string labelsJoined;
    std::string threadKey;
};

/// Reads messages as lists do: place by place, and without their texts. Part of a ModelContext.
class ListTable {
  public:
    explicit ListTable(StoreConnection& connection) : connection_(connection) {}

    MessageWalk walk(const MessageListQuery& query, MessageWalk::Direction direction = MessageWalk::Direction::older) {
        return {connection_, query, direction};
    }

    std::optional<ListedMessage> find(std::int64_t id);

    /// The messages of a conversation in all mailboxes of the account, newest first.
    std::vector<ListedMessage> thread(const UUID& accountID, std::string_view threadKey, std::size_t limit);

    /// Whether a newer message of the conversation is among those that `accepts` takes. The nearest are asked first.
    bool hasNewerInThread(const ListedMessage& message, const std::function<bool(const ListedMessage&)>& accepts);

    /// The messages with one of these Message-IDs.
    std::vector<std::int64_t> idsOf(std::vector<std::string> messageIDs);

  private:
    StoreConnection& connection_;
};

}
