#include "store/UnifiedMailbox.h"

#include "base/Localisation.h"

#include <algorithm>
#include <array>
#include <utility>

namespace velmo {

namespace {

constexpr std::array<std::pair<InboxFocus, std::string_view>, 3> focusWords{
    {{InboxFocus::important, "important"}, {InboxFocus::other, "other"}, {InboxFocus::all, "all"}}};

std::string roleTitle(MailboxRole role) {
    constexpr const char* note = "Name of a mailbox";
    switch (role) {
    case MailboxRole::inbox: return tr("All Inboxes");
    case MailboxRole::flagged: return trNoted(note, "Flagged");
    case MailboxRole::snoozed: return trNoted(note, "Snoozed");
    case MailboxRole::drafts: return trNoted(note, "Drafts");
    case MailboxRole::sent: return trNoted(note, "Sent");
    case MailboxRole::archive: return trNoted(note, "Archive");
    case MailboxRole::all: return trNoted(note, "All Mail");
    case MailboxRole::junk: return trNoted(note, "Spam");
    case MailboxRole::trash: return trNoted(note, "Trash");
    case MailboxRole::other: break;
    }
    return trNoted(note, "Other");
}

bool isSentMail(MailboxRole role) {
    return role == MailboxRole::drafts || role == MailboxRole::sent;
}

}

UnifiedMailbox UnifiedMailbox::mailbox(MailboxRole role) {
    UnifiedMailbox view;
    view.role = role;
    return view;
}

UnifiedMailbox UnifiedMailbox::folder(std::string name) {
    UnifiedMailbox view;
    view.kind = Kind::folder;
    view.text = std::move(name);
    return view;
}

UnifiedMailbox UnifiedMailbox::label(std::string key) {
    UnifiedMailbox view;
    view.kind = Kind::label;
    view.text = std::move(key);
    return view;
}

UnifiedMailbox UnifiedMailbox::important() {
    UnifiedMailbox view;
    view.kind = Kind::important;
    return view;
}

std::string title(const UnifiedMailbox& view, const std::optional<LabelRecord>& label) {
    switch (view.kind) {
    case UnifiedMailbox::Kind::mailbox: return roleTitle(view.role);
    case UnifiedMailbox::Kind::important: return tr("Important");
    case UnifiedMailbox::Kind::label:
        if (view.text == followUpLabelKey) return tr("Waiting for Reply");
        return label ? label->name : view.text;
    case UnifiedMailbox::Kind::folder: break;
    }
    return view.text;
}

EmptyViewWords emptyWords(const UnifiedMailbox& view) {
    const bool isMailbox = view.kind == UnifiedMailbox::Kind::mailbox;
    if (isMailbox && view.role == MailboxRole::snoozed)
        return {tr("Nothing Snoozed"), tr("Snoozed messages wait here until their time comes.")};
    if (view.kind == UnifiedMailbox::Kind::important) return {tr("Nothing Important"), ""};
    if (view.kind == UnifiedMailbox::Kind::label && view.text == followUpLabelKey) return {tr("Nothing Waiting"), ""};
    if (isMailbox && view.role == MailboxRole::inbox) return {tr("No Messages"), tr("Every Inbox is empty.")};
    return {tr("No Messages"), ""};
}

bool showsRecipients(const MessageListSource& source) {
    if (const auto* mailbox = std::get_if<MailboxRecord>(&source)) return isSentMail(mailbox->role());
    if (const auto* label = std::get_if<LabelSource>(&source)) return label->label.key == followUpLabelKey;
    const auto& view = std::get<UnifiedScope>(source).view;
    if (view.kind == UnifiedMailbox::Kind::label) return view.text == followUpLabelKey;
    return view.kind == UnifiedMailbox::Kind::mailbox && isSentMail(view.role);
}

bool hasFocus(const MessageListSource& source) {
    if (const auto* mailbox = std::get_if<MailboxRecord>(&source)) return mailbox->role() == MailboxRole::inbox;
    const auto* scope = std::get_if<UnifiedScope>(&source);
    return scope != nullptr && scope->view == UnifiedMailbox::mailbox(MailboxRole::inbox);
}

EmptyViewWords emptyWords(const MessageListSource& source) {
    if (const auto* scope = std::get_if<UnifiedScope>(&source)) return emptyWords(scope->view);
    if (const auto* label = std::get_if<LabelSource>(&source))
        return emptyWords(UnifiedMailbox::label(label->label.key));
    const auto role = std::get<MailboxRecord>(source).role();
    // "Every Inbox" is said of all of them only.
    return emptyWords(UnifiedMailbox::mailbox(role == MailboxRole::inbox ? MailboxRole::other : role));
}

std::string_view rawText(InboxFocus focus) {
    return std::ranges::find(focusWords, focus, &std::pair<InboxFocus, std::string_view>::first)->second;
}

std::optional<InboxFocus> inboxFocusFrom(std::string_view rawText) {
    const auto found = std::ranges::find(focusWords, rawText, &std::pair<InboxFocus, std::string_view>::second);
    return found == focusWords.end() ? std::nullopt : std::optional(found->first);
}

std::string inboxFocusHelp() {
    return tr("Important shows mail from people and security alerts; Other has newsletters, promotions, notifications "
              "and receipts.");
}

std::string wholeInboxTitle() {
    return tr("Inbox focus: every message");
}

std::string unreadInOther(std::int64_t count) {
    return tr("{} unread in Other: newsletters, promotions, notifications and receipts", count);
}

}
