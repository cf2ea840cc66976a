#include "compose/ReplyRecipients.h"

#include "platform/CaseFolding.h"

#include <set>

namespace velmo {

namespace {

std::vector<IMAPAddress> withAddress(const std::vector<IMAPAddress>& addresses) {
    std::vector<IMAPAddress> kept;
    for (const auto& address : addresses) {
        if (!address.email.empty()) kept.push_back(address);
    }
    return kept;
}

std::vector<IMAPAddress> answeredTo(const MessageRecord& original) {
    auto replyTo = withAddress(original.replyTo);
    if (!replyTo.empty()) return replyTo;
    IMAPAddress sender;
    sender.email = original.fromEmail;
    if (!original.fromName.empty()) sender.name = original.fromName;
    return withAddress({sender});
}

}

ReplyRecipients replyRecipients(const MessageRecord& original, ReplyScope scope, std::string_view ownEmail) {
    const bool isOwn = foldedCase(original.fromEmail) == foldedCase(ownEmail);
    if (scope == ReplyScope::all && isOwn && !withAddress(original.to).empty()) return followUpRecipients(original);
    ReplyRecipients recipients{.to = answeredTo(original), .cc = {}};
    if (scope == ReplyScope::sender) return recipients;
    std::set<std::string> taken{foldedCase(ownEmail)};
    for (const auto& address : recipients.to) taken.insert(foldedCase(address.email));
    for (const auto* list : {&original.to, &original.cc}) {
        for (const auto& address : withAddress(*list)) {
            if (taken.insert(foldedCase(address.email)).second) recipients.cc.push_back(address);
        }
    }
    return recipients;
}

std::vector<IMAPAddress> foreignReplyTo(const MessageRecord& original) {
    const auto domain = [](std::string_view email) { return domainOf(email).value_or(foldedCase(email)); };
    const auto isBelow = [](const std::string& a, const std::string& b) { return a == b || a.ends_with("." + b); };
    const std::string sender = domain(original.fromEmail);
    auto foreign = withAddress(original.replyTo);
    std::erase_if(foreign, [&](const IMAPAddress& address) {
        const std::string other = domain(address.email);
        return isBelow(other, sender) || isBelow(sender, other);
    });
    return foreign;
}

ReplyRecipients followUpRecipients(const MessageRecord& sent) {
    return {.to = withAddress(sent.to), .cc = withAddress(sent.cc)};
}

ReplyThread replyThread(const MessageRecord& original) {
    ReplyThread thread{.inReplyTo = original.messageID, .references = original.references};
    if (original.messageID) thread.references.push_back(*original.messageID);
    return thread;
}

}
