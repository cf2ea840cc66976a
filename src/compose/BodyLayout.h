#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

/// How the text of a message is laid out: what the person wrote, the signature, the quote. A signature stands below a
/// line "-- " (RFC 3676 §4.3). Texts are UTF-8 with LF between lines; all is linear in its input.
namespace velmo {

/// The line "-- " and the signature without outer white space; empty when the signature is.
std::string signatureBlock(std::string_view signature);

/// The three parts that are not empty, with an empty line between them.
std::string composedBody(std::string_view written, std::string_view signature, std::string_view quote);

/// The body with the signature of another account. The old one is replaced where it stands above the quote. When it
/// does not stand there, since it was edited or there was none, the new one goes in front of the quote, unless the body
/// holds it already.
std::string replacedSignature(std::string_view body, std::string_view oldSignature, std::string_view newSignature,
                              std::string_view quote);

/// A run of lines by its first one and the one behind its last.
struct LineRange {
    std::size_t first = 0;
    std::size_t end = 0;

    bool isEmpty() const { return first == end; }
    friend bool operator==(const LineRange&, const LineRange&) = default;
};

/// Where the signature stands among the lines of a body, its "-- " included. The given signature, where a block of it
/// stands above what is forwarded. Otherwise all that follows the first line "-- " or "--", up to the next quote with
/// the line that introduces it. Empty, at the place in front of the quote, when there is no such line either.
LineRange signatureRange(std::span<const std::string_view> lines, std::string_view signature);

}
