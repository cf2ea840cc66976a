#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace velmo {

/// Length of a snippet, in code points.
inline constexpr std::size_t snippetLength = 240;

/// A text in one line and without what must never show in a preview: style sheets that leaked into its beginning,
/// markup, entities, runs of white space.
std::string cleanedPreview(std::string_view text);

/// The preview that is stored with a message: the first `snippetLength` characters of its cleaned text, quoted lines
/// left out. The plain text is the source, the HTML where there is none; empty when both are absent.
std::string snippet(const std::optional<std::string>& plainText, const std::optional<std::string>& html);

}
