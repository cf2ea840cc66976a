#pragma once

#include <string>
#include <string_view>

namespace velmo {

/// UTF-8 text in a form that is equal for texts which differ only in the case of letters, of any script.
///
/// One code point becomes one (simple case folding of Unicode §5.18), so "ß" and "ss" stay apart. Not for display.
std::string foldedCase(std::string_view utf8);

}
