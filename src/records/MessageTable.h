#pragma once

#include "records/Category.h"
#include "records/MessageRecord.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace velmo {

class StoreConnection;

/// A place in a list that runs from the newest message to the oldest; messages of one date stand by falling id.
struct MessagePlace {
    Date date;
    std::int64_t id = 0;

    static MessagePlace of(const MessageRecord& record) { return {record.date, record.id}; }
    friend auto operator<=>(const MessagePlace&, const MessagePlace&) = default;
};

/// Which rows a list shows.
struct MessageListQuery {
    enum class Show { all, unread, withoutBody };

    MessageListQuery() = default;
    explicit MessageListQuery(std::vector<MailboxKey> keys, std::size_t rows = 50)
        : mailboxes(std::move(keys)), limit(rows) {}

    std::vector<MailboxKey> mailboxes;
    Show show = Show::all;
    InboxFocus focus = InboxFocus::all; ///< of no effect on messages without a body, or with a label
    std::optional<std::string> label;   ///< key of a label: only the messages that carry it
    std::optional<Date> since;          ///< nothing older than this
    std::optional<MessagePlace> after;  ///< the last row of the page before; absent for the first page
    std::size_t limit = 50;
};

/// What a flag comparison needs of a message.
struct StoredFlags {
    std::int64_t id = 0;
    std::uint32_t uid = 0;
    MessageFlags flags;
};

/// Fields to write; absent ones stay as they are.
struct MessageChange {
    std::optional<bool> isSeen;
    std::optional<bool> isFlagged;
    std::optional<bool> isAnswered;
    std::optional<bool> hasBody;
    std::optional<std::string> snippet;
    std::optional<std::string> categoryRaw;
    std::optional<std::string> labelsJoined;
    std::optional<std::optional<std::string>> summary;
    std::optional<std::optional<std::string>> translation;
    std::optional<std::optional<std::string>> translationLanguage;
};

/// A message whose category is known, with the labels that it carries.
struct CategorisedMessage {
    std::int64_t id = 0;
    std::string categoryRaw;
    std::string labelsJoined;
};

/// The messages of all mailboxes. Part of a ModelContext.
class MessageTable {
  public:
    explicit MessageTable(StoreConnection& connection) : connection_(connection) {}

    /// A page of the list over these mailboxes together, newest first; reads no more rows of a mailbox than the page
    /// holds.
    std::vector<MessageRecord> page(const MessageListQuery& query);

    std::int64_t count(const MailboxKey& mailbox);
    std::int64_t unseenCount(const MailboxKey& mailbox);

    std::optional<MessageRecord> find(std::int64_t id);
    std::optional<MessageRecord> find(const MailboxKey& mailbox, std::uint32_t uid);

    /// In the order of the ids; one that is gone is left out.
    std::vector<MessageRecord> find(std::span<const std::int64_t> ids);

    /// The messages of a conversation in all mailboxes of the account, oldest first; of a very long one the newest.
    std::vector<MessageRecord> thread(const UUID& accountID, std::string_view threadKey);

    /// Ascending. Throws ModelStoreError `brokenRecord` when one is no 32-bit number, as `flags` does.
    std::vector<std::uint32_t> uids(const MailboxKey& mailbox);

    /// Of messages of which nothing but the UID is known; ascending.
    std::vector<std::uint32_t> headless(const MailboxKey& mailbox, std::size_t limit);

    /// The flags of those messages among the given UIDs that are held, in one query.
    std::vector<StoredFlags> flags(const MailboxKey& mailbox, std::span<const std::uint32_t> uids);

    /// With an id above `after`, by rising id: a walk over the store in steps.
    std::vector<CategorisedMessage> categorised(std::int64_t after, std::size_t limit);

    /// Messages with an id above `after`, by rising id: a walk over the whole store in steps.
    std::vector<MessageRecord> walk(std::int64_t after, std::size_t limit);

    /// Inserts new messages and gives each its id. Throws sqlite::SQLiteError `constraint` for one that is held
    /// already.
    void insert(std::span<MessageRecord> records);

    /// Writes the fields that differ. True when there was one.
    bool change(std::int64_t id, const MessageChange& change);

    /// Writes flags that are known to differ.
    void setFlags(const MailboxKey& mailbox, std::int64_t id, const MessageFlags& flags);

    /// Body files are removed by whoever removes the records, after the commit.
    void remove(const MailboxKey& mailbox, std::span<const std::int64_t> ids);
    void removeAll(const MailboxKey& mailbox);
    void removeAll(const UUID& accountID);

  private:
    StoreConnection& connection_;
};

}
