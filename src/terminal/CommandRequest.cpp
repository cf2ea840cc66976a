#include "terminal/CommandRequest.h"

#include "base/Text.h"

#include <algorithm>
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

/// No word or path that a process is given holds a NUL. Throws json::exception.
std::string decodedText(const json& value) {
    std::string bytes;
    if (value.is_array())
        for (const auto& octet : value) bytes += static_cast<char>(octet.get<unsigned char>());
    else
        bytes = value.get<std::string>();
    if (bytes.find('\0') != std::string::npos) throw json::other_error::create(500, "a NUL in a text", nullptr);
    return bytes;
}

}

Bytes CommandRequest::encoded() const {
    auto encodedWords = json::array();
    for (const auto& word : words) encodedWords.push_back(encodedText(word));
    const json document{{"words", encodedWords},
                        {"directory", encodedText(directory.string())},
                        {"width", form.width},
                        {"outIsTerminal", form.outIsTerminal},
                        {"errIsTerminal", form.errIsTerminal},
                        {"colour", form.hasColour},
                        {"needsMail", needsMail}};
    return document.dump();
}

std::optional<CommandRequest> CommandRequest::decoded(BytesView bytes) {
    try {
        const json document = json::parse(bytes);
        CommandRequest request;
        for (const auto& word : document.at("words")) request.words.push_back(decodedText(word));
        request.directory = decodedText(document.at("directory"));
        request.form.width = std::clamp(document.at("width").get<std::size_t>(), leastWidth, mostWidth);
        request.form.outIsTerminal = document.at("outIsTerminal").get<bool>();
        request.form.errIsTerminal = document.at("errIsTerminal").get<bool>();
        request.form.hasColour = document.at("colour").get<bool>();
        request.needsMail = document.at("needsMail").get<bool>();
        if (!document.at("words").is_array() || !request.directory.is_absolute()) return std::nullopt;
        return request;
    } catch (const json::exception&) {
        return std::nullopt;
    }
}

}
