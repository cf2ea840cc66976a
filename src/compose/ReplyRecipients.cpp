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

ReplyRecipients followUpRecipients(const MessageRecord& sent) {
    return {.to = withAddress(sent.to), .cc = withAddress(sent.cc)};
}

ReplyThread replyThread(const MessageRecord& original) {
    ReplyThread thread{.inReplyTo = original.messageID, .references = original.references};
    if (original.messageID) thread.references.push_back(*original.messageID);
    return thread;
}

}
