#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

namespace velmo {

/// Quotes are nested no deeper than this, since what shows them builds a tree.
inline constexpr std::size_t deepestQuote = 64;

/// Text with "&", "<" and ">" as character references.
std::string escapedHTML(std::string_view text);

/// The same with the double quote as well, for the value of an attribute.
std::string escapedAttribute(std::string_view value);

/// Lines of plain text, without their line ends, as HTML: a "<div>" for each, what is quoted with ">" in
/// "<blockquote>" elements that are all closed, links as links. Takes any UTF-8; linear in its input.
std::string plainToHTML(std::span<const std::string_view> lines);

}
