#pragma once

#include <string>
#include <string_view>

namespace velmo {

/// The length in bytes of the Unicode white space character at `position`, 0 when another character stands there.
std::size_t whiteSpaceLength(std::string_view utf8, std::size_t position);

/// The text with each run of Unicode white space as one blank, and none at its ends.
/// Stops behind `enough` bytes of the result: what is given is then a beginning of it, at least that long.
std::string collapsedWhiteSpace(std::string_view utf8, std::size_t enough = std::string_view::npos);

}
