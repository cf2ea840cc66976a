#include "sync/MessageRecordMaker.h"

#include "formats/Preview.h"
#include "records/Labels.h"
#include "sync/Attachments.h"

#include <fmt/format.h>

namespace velmo {

namespace {

void takeEnvelope(MessageRecord& record, const IMAPEnvelope& envelope) {
    if (!envelope.from.empty()) {
        record.fromEmail = envelope.from.front().email;
        record.fromName = envelope.from.front().name.value_or("");
    }
    record.subject = envelope.subject.value_or("");
    record.to = envelope.to;
    record.cc = envelope.cc;
    record.replyTo = envelope.replyTo;
    record.messageID = envelope.messageID;
    record.inReplyTo = envelope.inReplyTo;
}

void takeStructure(MessageRecord& record, const IMAPBodyStructure& structure) {
    record.attachments = attachments(structure);
    record.hasAttachments = !record.attachments.empty();
    record.hasInvite = hasCalendarPart(structure);
}

}

std::string threadKey(const SyncedMessage& message, std::string_view mailboxPath) {
    if (message.gmailThreadID) return "gm:" + std::to_string(*message.gmailThreadID);
    if (!message.references.empty()) return message.references.front();
    if (message.envelope) {
        // An empty header field must not gather strangers in one thread.
        const auto& [inReplyTo, messageID] = std::tie(message.envelope->inReplyTo, message.envelope->messageID);
        if (inReplyTo && !inReplyTo->empty()) return *inReplyTo;
        if (messageID && !messageID->empty()) return *messageID;
    }
    // UIDs are those of one mailbox, and conversations those of an account.
    return fmt::format("uid:{}:{}", mailboxPath, message.uid);
}

MessageRecord makeMessageRecord(const SyncedMessage& message, const MailboxKey& mailbox, std::int64_t uidValidity,
                                LabelNewMail labelNewMail) {
    MessageRecord record;
    record.accountID = mailbox.accountID;
    record.mailboxPath = mailbox.path;
    record.uid = message.uid;
    record.uidValidity = uidValidity;
    record.references = message.references;
    record.date = message.date;
    record.size = message.size;
    if (message.envelope) takeEnvelope(record, *message.envelope);
    record.threadKey = threadKey(message, mailbox.path);
    record.applyFlags(message.flags);
    if (message.snippet) record.snippet = cleanedPreview(*message.snippet);
    if (const auto category = categorise(record.fromEmail, record.subject, record.snippet, message.isBulk)) {
        record.categoryRaw = rawText(*category);
        if (labelNewMail == LabelNewMail::yes)
            record.labelsJoined = settingLabel(record.labelsJoined, labelKey(*category), LabelChange::add);
    }
    if (message.bodyStructure) takeStructure(record, *message.bodyStructure);
    return record;
}

}
