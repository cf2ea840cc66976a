#include "compose/ComposeRequest.h"

#include "base/Localisation.h"

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>
#include <utility>

namespace velmo {

using nlohmann::json;

namespace {

std::string sentenceFor(ComposeRequestError::Kind kind) {
    if (kind == ComposeRequestError::Kind::numberOfKeys) return tr("Invalid number of keys found, expected one.");
    return tr("What the window was opened for can't be read.");
}

// --- Writing -----------------------------------------------------------------------------------------------------

json withAccount(json object, const std::optional<UUID>& account) {
    if (account) object["from"] = account->text();
    return object;
}

struct Writer {
    json operator()(const ComposeRequest::New& value) const {
        return {{"new", withAccount({{"id", value.id.text()}}, value.from)}};
    }
    json operator()(const ComposeRequest::Reply& value) const {
        json object{{"message", value.message}, {"all", value.all}, {"id", value.id.text()}};
        if (value.text) object["text"] = *value.text;
        return {{"reply", std::move(object)}};
    }
    json operator()(const ComposeRequest::Forward& value) const { return onMessage("forward", value); }
    json operator()(const ComposeRequest::FollowUp& value) const { return onMessage("followUp", value); }
    json operator()(const ComposeRequest::EditDraft& value) const { return onMessage("editDraft", value); }
    json operator()(const ComposeRequest::Mailto& value) const {
        return {{"mailto", withAccount({{"url", value.url}, {"id", value.id.text()}}, value.from)}};
    }
    json operator()(const ComposeRequest::Outbox& value) const { return {{"outbox", {{"item", value.item.text()}}}}; }

  private:
    template <class T>
    static json onMessage(const char* key, const T& value) {
        return {{key, {{"message", value.message}, {"id", value.id.text()}}}};
    }
};

// --- Reading -----------------------------------------------------------------------------------------------------

[[noreturn]] void failMalformed() {
    throw ComposeRequestError(ComposeRequestError::Kind::malformed);
}

const json* valueOf(const json& object, const char* key) {
    const auto found = object.find(key);
    return found == object.end() || found->is_null() ? nullptr : &*found;
}

std::optional<std::string> textOf(const json& object, const char* key) {
    const json* value = valueOf(object, key);
    if (value == nullptr) return std::nullopt;
    if (!value->is_string()) failMalformed();
    return value->get<std::string>();
}

std::optional<UUID> accountOf(const json& object) {
    const auto text = textOf(object, "from");
    if (!text) return std::nullopt;
    const auto account = UUID::parse(*text);
    if (!account) failMalformed();
    return account;
}

UUID identifierOf(const json& object, const char* key) {
    const auto identifier = UUID::parse(textOf(object, key).value_or(""));
    if (!identifier) failMalformed();
    return *identifier;
}

std::int64_t messageOf(const json& object) {
    const json* value = valueOf(object, "message");
    if (value == nullptr || !value->is_number_integer()) failMalformed();
    if (value->is_number_unsigned() && !std::in_range<std::int64_t>(value->get<std::uint64_t>())) failMalformed();
    return value->get<std::int64_t>();
}

bool allOf(const json& object) {
    const json* value = valueOf(object, "all");
    if (value == nullptr || !value->is_boolean()) failMalformed();
    return value->get<bool>();
}

template <class T>
ComposeRequest::Case onMessage(const json& object) {
    return T{.message = messageOf(object), .id = identifierOf(object, "id")};
}

struct Reader {
    std::string_view key;
    ComposeRequest::Case (*read)(const json& object);
};

constexpr std::array readers{
    Reader{"new",
           [](const json& object) -> ComposeRequest::Case {
               return ComposeRequest::New{.from = accountOf(object), .id = identifierOf(object, "id")};
           }},
    Reader{"reply",
           [](const json& object) -> ComposeRequest::Case {
               return ComposeRequest::Reply{.message = messageOf(object),
                                            .all = allOf(object),
                                            .text = textOf(object, "text"),
                                            .id = identifierOf(object, "id")};
           }},
    Reader{"forward", onMessage<ComposeRequest::Forward>},
    Reader{"followUp", onMessage<ComposeRequest::FollowUp>},
    Reader{"editDraft", onMessage<ComposeRequest::EditDraft>},
    Reader{"mailto",
           [](const json& object) -> ComposeRequest::Case {
               const auto url = textOf(object, "url");
               if (!url) failMalformed();
               return ComposeRequest::Mailto{.url = *url, .from = accountOf(object), .id = identifierOf(object, "id")};
           }},
    Reader{"outbox",
           [](const json& object) -> ComposeRequest::Case {
               return ComposeRequest::Outbox{.item = identifierOf(object, "item")};
           }},
};

}

ComposeRequestError::ComposeRequestError(Kind kind) : UserError(sentenceFor(kind)), kind_(kind) {}

Bytes ComposeRequest::json() const {
    return std::visit(Writer{}, case_).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

ComposeRequest ComposeRequest::fromJSON(BytesView data) {
    const auto object = nlohmann::json::parse(data, nullptr, false);
    if (!object.is_object()) failMalformed();
    if (object.size() != 1) throw ComposeRequestError(ComposeRequestError::Kind::numberOfKeys);
    const auto reader = std::ranges::find(readers, std::string_view(object.begin().key()), &Reader::key);
    if (reader == readers.end()) throw ComposeRequestError(ComposeRequestError::Kind::numberOfKeys);
    if (!object.begin()->is_object()) failMalformed();
    return reader->read(object.begin().value());
}

}
