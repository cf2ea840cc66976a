#include "store/RoleMailboxes.h"

#include "base/Localisation.h"
#include "base/Text.h"
#include "base/UserError.h"
#include "platform/Log.h"

#include <algorithm>

namespace velmo {

namespace {

std::string baseName(MailProvider provider, MailboxRole role) {
    switch (role) {
    case MailboxRole::drafts: return "Drafts";
    case MailboxRole::sent: return provider == MailProvider::icloud ? "Sent Messages" : "Sent";
    case MailboxRole::snoozed: return "Snoozed";
    default: return "";
    }
}

/// A mailbox whose path shows where the server keeps those with a role: the one for sent mail, or else the first. The
/// inbox itself shows nothing.
const MailboxRecord* example(const std::vector<MailboxRecord>& mailboxes) {
    const auto sent = std::ranges::find(mailboxes, MailboxRole::sent, &MailboxRecord::role);
    if (sent != mailboxes.end()) return &*sent;
    const auto first = std::ranges::find_if(mailboxes, [](const auto& mailbox) {
        return mailbox.role() != MailboxRole::inbox && mailbox.role() != MailboxRole::other;
    });
    return first == mailboxes.end() ? nullptr : &*first;
}

}

NoSuchMailbox::NoSuchMailbox() : UserError(tr("This account has no such folder.")) {}

std::string pathForRole(MailProvider provider, const std::vector<MailboxRecord>& mailboxes, MailboxRole role) {
    std::string name = baseName(provider, role);
    const auto inbox = std::ranges::find(mailboxes, MailboxRole::inbox, &MailboxRecord::role);
    if (name.empty() || inbox == mailboxes.end() || !inbox->delimiter) return name;
    const std::string prefix = "INBOX" + *inbox->delimiter;
    const MailboxRecord* other = example(mailboxes);
    const bool isBelow = other && text::equalsIgnoringCase(other->path.substr(0, prefix.size()), prefix);
    return isBelow ? prefix + name : name;
}

Async<std::string> RoleMailboxes::path(MailAccount account, MailboxRole role) {
    if (const auto held = directory_.mailbox(role, account.id)) co_return held->path;
    const std::string made = pathForRole(account.provider, directory_.mailboxes(account.id), role);
    if (made.empty()) throw NoSuchMailbox();
    const auto engine = engines_.engine(account);
    const auto client = co_await engine->connectedClient();
    co_await client->locked([&] { return client->createMailbox(made); });
    if (listMailboxes_) {
        const auto failure = co_await detail::caught([&] { return listMailboxes_(account); });
        if (isCancellation(failure)) std::rethrow_exception(failure);
        if (failure) log("Mail").error("Couldn't list the mailboxes: {}", pub(sentenceOf(failure)));
    }
    const auto listed = directory_.mailbox(role, account.id);
    co_return listed ? listed->path : made;
}

}
