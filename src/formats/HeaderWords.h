#pragma once

#include <string>
#include <string_view>

namespace velmo {

/// A header value with its encoded words (RFC 2047) decoded to UTF-8. White space between two of them is dropped. A
/// word that cannot be decoded stays as it stands.
std::string decodeHeaderWords(std::string_view text);

}
