#pragma once

#include "base/Async.h"
#include "records/Labels.h"
#include "records/MessageRecord.h"
#include "store/AccountEngines.h"
#include "store/MailboxDirectory.h"
#include "store/StoreEnvironment.h"
#include "store/StoreStatus.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace velmo {

/// What a person does to messages. What is shown changes at once; the server hears of it afterwards, and what it
/// refuses is put back, with its words as an error banner.
///
/// Moves and deletions can be undone for five seconds. Meanwhile the messages are hidden, and the server has heard of
/// nothing; there is one such action at a time, and the next one ends its time. Flags and labels change without delay,
/// since their inverse is the same action.
///
/// Every operation takes messages of any accounts and mailboxes, and goes by what the store holds of them now: those
/// that are gone are left out, and those that are hidden because they are leaving can't be moved again; with none left
/// nothing happens. An account that is gone has no messages. Commands of one account reach its server in the order of
/// the actions, and never name a message by a number of an older UIDVALIDITY.
///
/// Lives on the main executor. Dropping it cuts off what is under way: see `finished`.
class MessageActions {
  public:
    using Records = std::vector<MessageRecord>;
    /// The numbers of the messages that an action took: for flags and labels, of those that are as was asked now.
    using Taken = std::set<std::int64_t>;

    /// What is asked of other parts of the store; each may be left out.
    struct Hooks {
        /// Brings a mailbox to what the server has at the call or later; failures stay inside.
        std::function<Async<void>(MailAccount, std::string path)> syncMailbox;
        /// Fetches the listing of an account again, and stores it; throws what the server refuses.
        std::function<Async<void>(MailAccount)> listMailboxes;
        /// Moves the selection on to what stays, before these messages leave the lists.
        std::function<void(const std::set<std::int64_t>& leaving)> selectNext;
        /// Forgets that these messages are to come back.
        std::function<void(const Records&)> unsnooze;
    };

    enum class ReadState { unread, read };
    enum class FlagState { unflagged, flagged };

    /// `environment` and the others outlive this.
    MessageActions(StoreEnvironment& environment, StoreStatus& status, MailboxDirectory& directory,
                   AccountEngines& engines, Hooks hooks);
    ~MessageActions();
    MessageActions(const MessageActions&) = delete;
    MessageActions& operator=(const MessageActions&) = delete;

    Taken setRead(const Records& records, ReadState state);
    Taken setFlagged(const Records& records, FlagState state);

    /// On this machine only: servers know nothing of labels.
    Taken label(const Records& records, const std::string& key, LabelChange change);

    /// To the archive, or to the mailbox of all mail where there is no archive. An error banner when an account has
    /// neither; then nothing changes.
    Taken archive(const Records& records);

    /// To the junk mailbox; when all of them stand in it, to the inbox. An error banner when an account has none; then
    /// nothing changes.
    Taken moveToJunk(const Records& records);

    /// To the trash. Where there is none, or all messages of an account stand in it, they are deleted for good.
    Taken moveToTrash(const Records& records);

    /// They are snoozed no more. An error banner when no account has an inbox.
    Taken moveToInbox(const Records& records);

    /// Those that don't stand there already. Without a title the banner names the mailbox.
    Taken move(const Records& records, const std::string& toPath, std::optional<std::string> title = {});

    /// The same without time to undo and without a banner.
    void moveAtOnce(const Records& records, const std::string& toPath);

    Taken deleteForever(const Records& records, const std::string& title);

    /// Takes back the action that can be undone. Nothing when there is none, or the banner offers to take back
    /// something else.
    void undo();

    /// The title of what `undo` takes back now, whether or not the banner still tells of it; absent when that is
    /// nothing.
    std::optional<std::string> undoable() const;

    /// Why `undo` takes nothing back now, as a sentence for the person.
    std::string whyNotUndoable() const;

    /// True while a server is asked to change flags of one of these messages.
    bool isUnderWay(const Taken& messages) const;

    /// True while no server has confirmed a change of flags of one of these messages.
    bool isUnconfirmed(const Taken& messages) const;

    /// Why servers did not do what was last asked of these messages, for somebody who tells the person. Absent when
    /// nothing is known against it.
    std::optional<std::string> takeFailure(const Taken& messages);

    /// Ends the time of the action that can be undone, and begins it on the server.
    void commitPendingAction();

    /// The path of the account's mailbox of that role. One for drafts, sent mail or snoozed messages is made where
    /// there is none. Throws IMAPError when that fails, or when there is none of another role.
    Async<std::string> roleMailbox(MailAccount account, MailboxRole role);

    /// Tells the server of the account what it has not heard of: flags that were changed while it didn't answer,
    /// perhaps by an earlier run of the program. To be called whenever it has been reached.
    void sendUnsent(const UUID& accountID);

    /// Waits until the servers have answered all that was begun, and the mailboxes that this changed are up to date.
    /// An action that can still be undone is not begun by this. Throws only a cancellation.
    Async<void> finished();

  private:
    struct State;
    std::shared_ptr<State> state_;
};

}
