#pragma once

#include "records/LabelRecord.h"
#include "records/MailboxRecord.h"
#include "records/MessageTable.h"

#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace velmo {

/// A view across all accounts.
struct UnifiedMailbox {
    enum class Kind {
        mailbox,  ///< the mailbox of a role in every account
        folder,   ///< the mailbox of a name in every account
        label,    ///< every message with a label
        important ///< the inboxes, with the focus on what is important
    };

    static UnifiedMailbox mailbox(MailboxRole role);
    static UnifiedMailbox folder(std::string name);
    static UnifiedMailbox label(std::string key);
    static UnifiedMailbox important();

    Kind kind = Kind::mailbox;
    MailboxRole role = MailboxRole::inbox; ///< of `mailbox`
    std::string text;                      ///< name of a folder, key of a label

    friend bool operator==(const UnifiedMailbox&, const UnifiedMailbox&) = default;
};

/// The key of the label on messages that wait for a reply.
inline constexpr std::string_view followUpLabelKey = "followup";

/// The name over a view. `label` is the record of a label view, whose name it takes.
std::string title(const UnifiedMailbox& view, const std::optional<LabelRecord>& label = {});

/// What stands in place of the rows of an empty list. The second line can be empty.
struct EmptyViewWords {
    std::string title;
    std::string text;
};
EmptyViewWords emptyWords(const UnifiedMailbox& view);

/// A view across accounts, with the mailboxes that take part in it now.
struct UnifiedScope {
    UnifiedMailbox view;
    std::string title;
    std::vector<MailboxRecord> mailboxes;
    std::vector<std::string> excludedPaths; ///< of a label view: spam and trash
    std::optional<LabelRecord> label;       ///< of a label view

    friend bool operator==(const UnifiedScope&, const UnifiedScope&) = default;
};

/// The messages of one account that carry a label, without those in the excluded mailboxes.
struct LabelSource {
    LabelRecord label;
    UUID accountID;
    std::vector<std::string> excludedPaths;

    friend bool operator==(const LabelSource&, const LabelSource&) = default;
};

/// Where the rows of a list come from.
using MessageListSource = std::variant<MailboxRecord, LabelSource, UnifiedScope>;

/// Whether the list holds mail that the person sent, so that its rows name the recipients.
bool showsRecipients(const MessageListSource& source);

/// Whether the list can be split by InboxFocus: one inbox, or all of them.
bool hasFocus(const MessageListSource& source);

/// The words that stand in place of the rows of a list that has none.
EmptyViewWords emptyWords(const MessageListSource& source);

/// The word under which the choice is stored: "important", "other", "all".
std::string_view rawText(InboxFocus focus);
std::optional<InboxFocus> inboxFocusFrom(std::string_view rawText);

/// What the focus means, in one line; and the item of the picker that shows the whole inbox.
std::string inboxFocusHelp();
std::string wholeInboxTitle();

/// "3 unread in Other: newsletters, promotions, notifications and receipts"
std::string unreadInOther(std::int64_t count);

}
