#include "compose/WrittenMessage.h"

#include "compose/HTMLBody.h"
#include "compose/Signatures.h"

#include <utility>

namespace velmo {

std::string senderNameKey(const UUID& account) {
    return "senderName." + account.text();
}

IMAPAddress senderAddress(const Settings& settings, const MailAccount& account) {
    return {settings.text(senderNameKey(account.id)), account.email};
}

OutgoingMessage writtenMessage(const OutboxItem& item, const MailAccount& sender, Settings& settings, Date now) {
    OutgoingMessage message(senderAddress(settings, sender), now);
    message.to = item.to;
    message.cc = item.cc;
    message.bcc = item.bcc;
    message.subject = item.subject;
    message.plainText = item.body;
    message.inReplyTo = item.inReplyTo;
    message.references = item.references;
    message.attachments = item.attachments;
    if (!item.messageID.empty()) message.messageID = item.messageID;
    const Signatures signatures(settings);
    auto styled = htmlBody(item.body, signatures.signature(sender.id).value_or(""),
                           signatures.richSignature(sender.id).value_or(std::vector<SignaturePiece>()));
    message.html = std::move(styled.html);
    message.pictures = std::move(styled.pictures);
    return message;
}

}
