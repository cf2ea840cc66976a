#include "records/JSONCells.h"

#include <nlohmann/json.hpp>

namespace velmo::cells {

namespace {

using Json = nlohmann::json;

void appendText(std::string& out, std::string_view text) {
    constexpr std::string_view digits = "0123456789abcdef";
    out += '"';
    std::size_t done = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto c = static_cast<unsigned char>(text[i]);
        if (c >= 0x20 && c != '"' && c != '\\') continue;
        out += text.substr(done, i - done);
        done = i + 1;
        out += '\\';
        if (c >= 0x20) {
            out += text[i];
        } else {
            out += "u00";
            out += digits[c >> 4];
            out += digits[c & 15];
        }
    }
    out += text.substr(done);
    out += '"';
}

void appendElement(std::string& out, const std::string& text) {
    appendText(out, text);
}

void appendElement(std::string& out, const IMAPAddress& address) {
    out += '{';
    if (address.name) {
        out += "\"name\":";
        appendText(out, *address.name);
        out += ',';
    }
    out += "\"email\":";
    appendText(out, address.email);
    out += '}';
}

void appendElement(std::string& out, const AttachmentInfo& attachment) {
    out += "{\"filename\":";
    appendText(out, attachment.filename);
    out += ",\"mimeType\":";
    appendText(out, attachment.mimeType);
    out += ",\"size\":";
    out += std::to_string(attachment.size);
    out += ",\"section\":";
    appendText(out, attachment.section);
    if (attachment.contentID) {
        out += ",\"contentID\":";
        appendText(out, *attachment.contentID);
    }
    out += '}';
}

template <class T>
std::string encodeList(std::span<const T> values) {
    std::string out = "[";
    for (const auto& value : values) {
        if (out.size() > 1) out += ',';
        appendElement(out, value);
    }
    out += ']';
    return out;
}

/// The elements of a cell; an array without any for whatever is no array.
Json parse(std::string_view cell) {
    if (cell.size() <= 2) return Json::array();
    auto value = Json::parse(cell, nullptr, false);
    return value.is_array() ? value : Json::array();
}

std::optional<std::string> textAt(const Json& object, const char* key) {
    const auto found = object.find(key);
    if (found == object.end() || !found->is_string()) return std::nullopt;
    return found->get<std::string>();
}

std::int64_t integerAt(const Json& object, const char* key) {
    const auto found = object.find(key);
    return found != object.end() && found->is_number_integer() ? found->get<std::int64_t>() : 0;
}

}

std::string encode(std::span<const std::string> values) {
    return encodeList(values);
}

std::string encode(std::span<const IMAPAddress> values) {
    return encodeList(values);
}

std::string encode(std::span<const AttachmentInfo> values) {
    return encodeList(values);
}

std::vector<std::string> texts(std::string_view cell) {
    std::vector<std::string> result;
    for (const auto& element : parse(cell)) {
        if (element.is_string()) result.push_back(element.get<std::string>());
    }
    return result;
}

std::vector<IMAPAddress> addresses(std::string_view cell) {
    std::vector<IMAPAddress> result;
    for (const auto& element : parse(cell)) {
        if (auto email = textAt(element, "email")) result.push_back({textAt(element, "name"), std::move(*email)});
    }
    return result;
}

std::vector<AttachmentInfo> attachments(std::string_view cell) {
    std::vector<AttachmentInfo> result;
    for (const auto& element : parse(cell)) {
        auto section = textAt(element, "section");
        if (!section) continue;
        result.push_back({textAt(element, "filename").value_or(""), textAt(element, "mimeType").value_or(""),
                          integerAt(element, "size"), std::move(*section), textAt(element, "contentID")});
    }
    return result;
}

}
