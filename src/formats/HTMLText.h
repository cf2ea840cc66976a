#pragma once

#include <string>
#include <string_view>

namespace velmo {

/// The readable text of an HTML document or fragment, in UTF-8: comments, scripts, styles and tags removed, lines kept
/// where the markup breaks them, entities decoded, runs of blanks and empty lines shortened. Linear in its input.
std::string htmlToPlainText(std::string_view html);

}
