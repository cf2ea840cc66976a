#include "terminal/CommandRequest.h"

#include "base/Text.h"

#include <algorithm>
#include <exception>
#include <nlohmann/json.hpp>

namespace velmo {

namespace {

using nlohmann::json;

constexpr std::size_t leastWidth = 20, mostWidth = 1000;

/// What is no UTF-8 becomes an array of octets.
json encodedText(const std::string& bytes) {
    if (text::isValidUTF8(bytes)) return bytes;
    auto octets = json::array();
    for (const char c : bytes) octets.push_back(static_cast<unsigned char>(c));
    return octets;
}

struct NoRequest : std::exception {};

/// Deep nesting would cost more time than it takes to send.
bool refuseNesting(int depth, json::parse_event_t, json&) {
    if (depth > 3) throw NoRequest();
    return true;
}

/// Throws for another shape, and for a NUL, which no word or path of a process holds.
std::string decodedText(const json& value) {
    std::string bytes;
    if (value.is_array())
        for (const auto& octet : value) bytes += static_cast<char>(octet.get<unsigned char>());
    else
        bytes = value.get<std::string>();
    if (bytes.find('\0') != std::string::npos) throw NoRequest();
    return bytes;
}

}

Bytes CommandRequest::encoded() const {
    auto encodedWords = json::array();
    for (const auto& word : words) encodedWords.push_back(encodedText(word));
    const json document{{"words", encodedWords},
                        {"directory", encodedText(directory.string())},
                        {"width", form.width},
                        {"inIsTerminal", form.inIsTerminal},
                        {"outIsTerminal", form.outIsTerminal},
                        {"errIsTerminal", form.errIsTerminal},
                        {"colour", form.hasColour},
                        {"needsMail", needsMail}};
    return document.dump();
}

std::optional<CommandRequest> CommandRequest::decoded(BytesView bytes) {
    try {
        const json document = json::parse(bytes, refuseNesting);
        CommandRequest request;
        for (const auto& word : document.at("words")) request.words.push_back(decodedText(word));
        request.directory = decodedText(document.at("directory"));
        request.form.width = std::clamp(document.at("width").get<std::size_t>(), leastWidth, mostWidth);
        request.form.inIsTerminal = document.at("inIsTerminal").get<bool>();
        request.form.outIsTerminal = document.at("outIsTerminal").get<bool>();
        request.form.errIsTerminal = document.at("errIsTerminal").get<bool>();
        request.form.hasColour = document.at("colour").get<bool>();
        request.needsMail = document.at("needsMail").get<bool>();
        if (!document.at("words").is_array() || !request.directory.is_absolute()) return std::nullopt;
        return request;
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

}
