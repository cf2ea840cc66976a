#pragma once

#include "base/Async.h"
#include "base/Task.h"
#include "store/MailboxDirectory.h"
#include "store/StoreEnvironment.h"
#include "store/StoreStatus.h"
#include "store/UnifiedMailbox.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace velmo {

class ListSearch;

/// Which rows of a source are wanted.
struct MessagePageRequest {
    MessagePageRequest() = default;
    explicit MessagePageRequest(MessageListSource from, std::size_t rows = 50) : source(std::move(from)), limit(rows) {}

    MessageListSource source;
    std::string search;                 ///< empty: every row
    InboxFocus focus = InboxFocus::all; ///< counts in lists that `hasFocus`
    bool showsUnreadOnly = false;
    std::optional<MessagePlace> after; ///< `next` of the page before; absent for the first page
    std::size_t limit = 50;
};

/// Rows of a list, newest first.
struct MessagePage {
    std::vector<MessageRecord> records;
    /// Where the page after this one begins; absent behind the last row. A page can hold fewer rows than were asked
    /// for, even none, and yet have a next one: a step over many rows that don't match is cut.
    std::optional<MessagePlace> next;
};

/// A conversation as one row: those of its messages that the list shows.
struct ConversationRow {
    MessageRecord newest;
    std::int64_t count = 0;  ///< of messages; at most 500
    std::int64_t unread = 0; ///< of those
};

struct ConversationPage {
    std::vector<ConversationRow> rows; ///< by their newest message
    std::optional<MessagePlace> next;  ///< as in MessagePage
};

/// The rows of lists, read from the mail store a page at a time. Messages that are about to leave their mailbox are
/// left out. Lives on the main executor; made by make_shared. Throws sqlite::SQLiteError when the store can't be read.
class MessageLists : public std::enable_shared_from_this<MessageLists> {
  public:
    /// What is given outlives this.
    MessageLists(StoreEnvironment& environment, StoreStatus& status, MailboxDirectory& directory);
    ~MessageLists();

    MessagePage page(const MessagePageRequest& request);

    /// The same rows, those of one conversation standing as one.
    ConversationPage conversations(const MessagePageRequest& request);

    /// The first rows of a list.
    std::vector<MessageRecord> messages(const MessageListSource& source, std::string_view search, InboxFocus focus,
                                        std::size_t limit);

    /// The messages of a conversation in all mailboxes of the account, oldest first; of a very long one the newest.
    std::vector<MessageRecord> thread(const UUID& accountID, std::string_view threadKey);

    /// The row to go to when these rows leave the list: the one below the first of them that stays, else the one above
    /// it. Absent when none stays, or none of the leaving ones is in the list.
    std::optional<std::int64_t> neighbour(const MessagePageRequest& request, const std::set<std::int64_t>& leaving);

    /// The mailboxes that take part in a view across accounts.
    UnifiedScope resolve(const UnifiedMailbox& view);

    /// The source of a mailbox or a label; absent when it is gone.
    std::optional<MessageListSource> mailbox(const MailboxKey& key);
    std::optional<MessageListSource> label(std::string_view key, const UUID& accountID);

    /// Makes new mail fast to search, in small steps in the background, now and after each commit from now on. Mail
    /// that is not yet so far is found all the same, only by more pages that are cut.
    void startIndexing();

    /// Ends that, and waits for the step that runs.
    Async<void> stopIndexing();

  private:
    std::vector<UUID> accountIDs() const;
    MessageListQuery queryOf(const MessagePageRequest& request);
    MessagePage readPage(const MessagePageRequest& request);
    ConversationPage readConversations(const MessagePageRequest& request);
    std::optional<std::int64_t> findNeighbour(const MessagePageRequest& request, const std::set<std::int64_t>& leaving);
    ListSearch* searchOf(const MessagePageRequest& request);
    void indexNewMail();
    static Async<void> index(std::weak_ptr<MessageLists> weak);

    StoreEnvironment& environment_;
    StoreStatus& status_;
    MailboxDirectory& directory_;
    std::unique_ptr<ListSearch> search_; ///< the last one
    std::int64_t bodiesVersion_ = 0;     ///< of the body index that it asked
    sigc::connection onCommit_;
    bool isIndexing_ = false;
    bool hasNewMail_ = false;
    bool hasDroppedStale_ = false;
    Task indexing_;
};

}
