#include "compose/OutboxItem.h"

#include "base/Text.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace velmo {

namespace {

using Json = nlohmann::json;

/// A value of the file is not as written; ends in an absent item.
struct Malformed {};

template <class T>
T required(std::optional<T> value) {
    if (!value) throw Malformed();
    return *std::move(value);
}

UUID uuidFrom(const Json& value) {
    return required(UUID::parse(value.get_ref<const std::string&>()));
}

Json toJSON(const std::vector<IMAPAddress>& addresses) {
    auto list = Json::array();
    for (const auto& address : addresses) {
        auto& entry = list.emplace_back(Json{{"email", address.email}});
        if (address.name) entry["name"] = *address.name;
    }
    return list;
}

std::vector<IMAPAddress> addressesFrom(const Json& list) {
    std::vector<IMAPAddress> addresses;
    for (const auto& entry : list) {
        auto& address = addresses.emplace_back();
        address.email = entry.at("email").get<std::string>();
        if (entry.contains("name")) address.name = entry.at("name").get<std::string>();
    }
    return addresses;
}

Json toJSON(const std::vector<OutgoingAttachment>& attachments) {
    auto list = Json::array();
    for (const auto& one : attachments)
        list.push_back({{"id", one.id.text()},
                        {"filename", one.filename},
                        {"mimeType", one.mimeType},
                        {"data", text::base64(one.data)}});
    return list;
}

std::vector<OutgoingAttachment> attachmentsFrom(const Json& list) {
    std::vector<OutgoingAttachment> attachments;
    for (const auto& entry : list)
        attachments.push_back({uuidFrom(entry.at("id")), entry.at("filename").get<std::string>(),
                               entry.at("mimeType").get<std::string>(),
                               required(text::decodedBase64(entry.at("data").get_ref<const std::string&>()))});
    return attachments;
}

OutboxItem itemFrom(const Json& object) {
    OutboxItem item;
    item.id = uuidFrom(object.at("id"));
    item.accountID = uuidFrom(object.at("accountID"));
    item.sendAt = required(dateFromISO8601(object.at("sendAt").get_ref<const std::string&>()));
    item.isScheduled = object.at("isScheduled").get<bool>();
    item.to = addressesFrom(object.at("to"));
    item.cc = addressesFrom(object.at("cc"));
    item.bcc = addressesFrom(object.at("bcc"));
    item.subject = object.at("subject").get<std::string>();
    item.body = object.at("body").get<std::string>();
    item.attachments = attachmentsFrom(object.at("attachments"));
    item.messageID = object.at("messageID").get<std::string>();
    item.references = object.at("references").get<std::vector<std::string>>();
    item.hasSavedDraft = object.at("hasSavedDraft").get<bool>();
    if (object.contains("inReplyTo")) item.inReplyTo = object.at("inReplyTo").get<std::string>();
    if (object.contains("answering")) item.answering = object.at("answering").get<std::int64_t>();
    if (object.contains("failure")) item.failure = object.at("failure").get<std::string>();
    if (object.contains("tries")) item.tries = std::max(0, object.at("tries").get<int>());
    return item;
}

}

Bytes OutboxItem::json() const {
    Json object{{"id", id.text()},
                {"accountID", accountID.text()},
                {"sendAt", iso8601(sendAt)},
                {"isScheduled", isScheduled},
                {"to", toJSON(to)},
                {"cc", toJSON(cc)},
                {"bcc", toJSON(bcc)},
                {"subject", subject},
                {"body", body},
                {"attachments", toJSON(attachments)},
                {"messageID", messageID},
                {"references", references},
                {"hasSavedDraft", hasSavedDraft}};
    if (inReplyTo) object["inReplyTo"] = *inReplyTo;
    if (answering) object["answering"] = *answering;
    if (failure) object["failure"] = *failure;
    if (tries > 0) object["tries"] = tries;
    return object.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::optional<OutboxItem> OutboxItem::fromJSON(BytesView data) {
    const Json object = Json::parse(data, nullptr, false);
    if (!object.is_object()) return std::nullopt;
    try {
        return itemFrom(object);
    } catch (const Json::exception&) {
        return std::nullopt;
    } catch (const Malformed&) {
        return std::nullopt;
    }
}

}
