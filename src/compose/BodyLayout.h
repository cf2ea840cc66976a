#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>

/// How the text of a message is laid out: what the person wrote, the signature, the quote. A signature stands below a
/// line "-- " (RFC 3676 §4.3). Texts are UTF-8 with LF between lines; the time is linear in their
/// length.
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

/// The first line of the quote in a body, that which introduces it included; the number of lines when there is none.
std::size_t quotePlace(std::span<const std::string_view> lines);

/// Where the block of that signature stands, above what is forwarded; absent when it was changed or deleted.
std::optional<LineRange> findSignature(std::span<const std::string_view> lines, std::string_view signature);

/// The first line "-- " or "--" and all that follows it up to the next quote: a signature by its looks. Empty when
/// there is no such line above what is forwarded.
LineRange markedSignature(std::span<const std::string_view> lines);

}
