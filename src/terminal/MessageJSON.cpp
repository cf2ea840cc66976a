#include "terminal/MessageJSON.h"

#include "base/Date.h"
#include "formats/Preview.h"
#include "platform/SHA256.h"
#include "protocols/MailboxNames.h"
#include "records/Labels.h"

#include <nlohmann/json.hpp>

namespace velmo {

namespace {

using nlohmann::json;

template <class T>
json orNull(const std::optional<T>& value) {
    return value ? json(*value) : json(nullptr);
}

json jsonOf(const std::vector<IMAPAddress>& addresses) {
    auto list = json::array();
    for (const auto& address : addresses)
        list.push_back({{"name", address.name.value_or("").empty() ? json(nullptr) : json(*address.name)},
                        {"email", address.email}});
    return list;
}

json jsonOf(const std::vector<AttachmentInfo>& attachments) {
    auto list = json::array();
    for (const auto& attachment : attachments) {
        list.push_back({{"filename", attachment.filename},
                        {"mimeType", attachment.mimeType},
                        {"size", attachment.size},
                        {"section", attachment.section},
                        {"contentID", orNull(attachment.contentID)}});
    }
    return list;
}

json jsonOf(const std::vector<MIMEAttachment>& attachments) {
    auto list = json::array();
    for (const auto& attachment : attachments) {
        list.push_back({{"filename", attachment.filename},
                        {"mimeType", attachment.mimeType},
                        {"contentID", orNull(attachment.contentID)},
                        {"isInline", attachment.isInline},
                        {"size", attachment.data.size()},
                        {"sha256", sha256Hex(attachment.data)}});
    }
    return list;
}

}

json jsonOf(const MessageRecord& record, const std::string& account) {
    const std::optional<std::string> fromName = record.fromName.empty() ? std::nullopt : std::optional(record.fromName);
    return {{"id", record.id},
            {"account", account},
            {"mailbox", decodedMailboxName(record.mailboxPath)},
            {"uid", record.uid},
            {"messageID", orNull(record.messageID)},
            {"threadKey", record.threadKey},
            {"from", {{"name", orNull(fromName)}, {"email", record.fromEmail}}},
            {"to", jsonOf(record.to)},
            {"cc", jsonOf(record.cc)},
            {"subject", record.subject},
            {"date", iso8601(record.date)},
            {"unread", !record.isSeen},
            {"flagged", record.isFlagged},
            {"answered", record.isAnswered},
            {"snippet", record.snippet},
            {"category", record.categoryRaw.empty() ? json(nullptr) : json(record.categoryRaw)},
            {"labels", labels(record.labelsJoined)},
            {"hasAttachments", record.hasAttachments},
            {"attachments", jsonOf(record.attachments)},
            {"hasInvite", record.hasInvite},
            {"size", record.size}};
}

json jsonOf(const ParsedMessage& message) {
    auto headers = json::array();
    for (const auto& field : message.headers.fields) headers.push_back({field.name, field.value});
    return {{"headers", headers},
            {"plainText", orNull(message.plainText)},
            {"html", orNull(message.html)},
            {"attachments", jsonOf(message.attachments)},
            {"snippet", snippet(message.plainText, message.html)}};
}

}
