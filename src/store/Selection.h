#pragma once

#include "base/Observed.h"
#include "store/MessageLists.h"
#include "store/StoreEnvironment.h"
#include "store/UnifiedMailbox.h"

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace velmo {

/// What the person is looking at: a mailbox, a label or a view across accounts, the messages selected in it, and the
/// way back through what was opened. Lives on the main executor. A value that is set to what it was tells nobody.
class Selection {
  public:
    /// What is given outlives this.
    Selection(StoreEnvironment& environment, MessageLists& lists) : environment_(environment), lists_(lists) {}

    /// The account in view; absent while a view across accounts is showing.
    Observed<std::optional<UUID>> accountID;
    Observed<std::optional<UnifiedMailbox>> unified;
    /// The mailbox or the label chosen in each account, kept while other accounts are in view. An account has one of
    /// the two; with neither its inbox is in view.
    Observed<std::map<UUID, std::string>> mailboxes;
    Observed<std::map<UUID, std::string>> labels;
    /// The messages selected in the list.
    Observed<std::set<std::int64_t>> messages;
    /// The messages opened, oldest first, and the place in them; -1 when there are none.
    Observed<std::vector<std::int64_t>> history;
    Observed<int> historyIndex{-1};
    /// A step back or forward is running, so that the opening it causes isn't recorded.
    Observed<bool> isMovingInHistory{false};
    /// The reader is showing in place of the list.
    Observed<bool> isReaderOpen{false};
    Observed<std::string> searchText;
    Observed<bool> showsUnreadOnly{false};
    Observed<InboxFocus> focus{InboxFocus::all};

    enum class Sync { no, yes };
    /// With `Sync::yes` the mailbox is handed to `syncMailbox`.
    void selectMailbox(const std::string& path, const UUID& account, Sync sync = Sync::no);
    void selectLabel(const std::string& key, const UUID& account);
    void selectUnified(const UnifiedMailbox& view);
    void selectMessages(const std::set<std::int64_t>& ids);

    /// The inboxes of all accounts.
    void openDefaultView() { selectUnified(UnifiedMailbox::mailbox(MailboxRole::inbox)); }

    /// Shows the message in the reader, and records it.
    void openMessage(std::int64_t id);
    void closeReader() { isReaderOpen = false; }
    void goBack();
    void goForward();
    bool canGoBack() const { return *historyIndex > 0; }
    bool canGoForward() const { return *historyIndex + 1 < static_cast<int>(history->size()); }

    /// The list in view, as these choices make it; absent without an account, or when its mailbox is gone.
    std::optional<MessagePageRequest> currentList();

    /// Messages are about to leave the list. When that takes away all that is selected, the selection moves to a
    /// neighbour of theirs, so that the reader goes on instead of going blank. To be called while they are still
    /// in the list.
    void selectNext(const std::set<std::int64_t>& leaving);

    /// Brings the selection in line with the accounts that exist, at the start and whenever these change: forgets what
    /// belongs to others, and opens the default view once, and whenever the account in view is gone.
    void repair(const std::set<UUID>& accounts);

    /// Syncs a mailbox in the background; set by whoever can.
    std::function<void(const MailboxKey&)> syncMailbox;

  private:
    void show(std::optional<UUID> account, std::optional<UnifiedMailbox> view);
    void record(std::int64_t id);
    void move(int step);

    StoreEnvironment& environment_;
    MessageLists& lists_;
    bool hasOpenedDefaultView_ = false;
};

}
