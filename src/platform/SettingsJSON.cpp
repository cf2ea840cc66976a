#include "platform/SettingsJSON.h"

#include "base/Text.h"

#include <cmath>
#include <limits>
#include <nlohmann/json.hpp>

namespace velmo {

using nlohmann::json;

namespace {

struct Writer {
    json operator()(bool value) const { return value; }
    json operator()(std::int64_t value) const { return value; }
    json operator()(double value) const {
        if (std::isfinite(value)) return value;
        return {{"double", std::isnan(value) ? "nan" : value > 0 ? "inf" : "-inf"}};
    }
    json operator()(const std::string& value) const { return text::repairedUTF8(value); }
    json operator()(Date value) const { return {{"date", unixMilliseconds(value)}}; }
    json operator()(const SettingsData& value) const { return {{"data", text::base64(value.bytes)}}; }
    json operator()(const std::vector<std::string>& value) const {
        json array = json::array();
        for (const auto& item : value) array.push_back(text::repairedUTF8(item));
        return array;
    }
    json operator()(const SettingsDictionary& value) const {
        json object = json::object();
        for (const auto& [key, item] : value) object[text::repairedUTF8(key)] = text::repairedUTF8(item);
        return {{"dictionary", std::move(object)}};
    }
};

std::optional<std::int64_t> wholeNumber(const json& value) {
    if (value.is_number_unsigned()) {
        const auto number = value.get<std::uint64_t>();
        if (number > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) return std::nullopt;
        return static_cast<std::int64_t>(number);
    }
    if (value.is_number_integer()) return value.get<std::int64_t>();
    return std::nullopt;
}

std::optional<SettingsValue> textsFrom(const json& array) {
    std::vector<std::string> texts;
    for (const auto& item : array) {
        if (!item.is_string()) return std::nullopt;
        texts.push_back(item.get<std::string>());
    }
    return texts;
}

std::optional<SettingsValue> dictionaryFrom(const json& object) {
    SettingsDictionary dictionary;
    for (const auto& [key, item] : object.items()) {
        if (!item.is_string()) return std::nullopt;
        dictionary.emplace(key, item.get<std::string>());
    }
    return dictionary;
}

std::optional<SettingsValue> infiniteFrom(const std::string& name) {
    if (name == "nan") return std::numeric_limits<double>::quiet_NaN();
    if (name == "inf") return std::numeric_limits<double>::infinity();
    if (name == "-inf") return -std::numeric_limits<double>::infinity();
    return std::nullopt;
}

std::optional<SettingsValue> marked(const std::string& mark, const json& value) {
    if (mark == "date") {
        const auto number = wholeNumber(value);
        if (!number) return std::nullopt;
        return dateFromUnixMilliseconds(*number);
    }
    if (mark == "data" && value.is_string()) {
        auto bytes = text::decodedBase64(value.get_ref<const std::string&>());
        if (!bytes) return std::nullopt;
        return SettingsData{std::move(*bytes)};
    }
    if (mark == "dictionary" && value.is_object()) return dictionaryFrom(value);
    if (mark == "double" && value.is_string()) return infiniteFrom(value.get_ref<const std::string&>());
    return std::nullopt;
}

}

json settingsJSON(const SettingsValue& value) {
    return std::visit(Writer{}, value);
}

std::optional<SettingsValue> settingsValue(const json& value) {
    if (value.is_boolean()) return value.get<bool>();
    if (value.is_number_float()) return value.get<double>();
    if (const auto number = wholeNumber(value)) return *number;
    if (value.is_string()) return value.get<std::string>();
    if (value.is_array()) return textsFrom(value);
    if (value.is_object() && value.size() == 1) return marked(value.begin().key(), value.begin().value());
    return std::nullopt;
}

}
