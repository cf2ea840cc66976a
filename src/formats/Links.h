#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace velmo {

/// A place in a text that reads as the address of a page or of a mailbox.
struct TextLink {
    std::size_t position = 0; ///< in bytes
    std::size_t length = 0;
    std::string url; ///< http, https or mailto

    friend bool operator==(const TextLink&, const TextLink&) = default;
};

/// The links of a line of UTF-8 text, in order and apart from each other: what begins with "http://", "https://",
/// "mailto:" or "www.", and mail addresses. Punctuation that closes a sentence or a bracket around a link is no part of
/// it. Linear in its input.
std::vector<TextLink> findLinks(std::string_view line);

}
