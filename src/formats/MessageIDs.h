#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace velmo {

/// The message identifiers of a References or In-Reply-To field (RFC 5322 §3.6.4), in order and with their angle
/// brackets. Whatever stands between them is ignored, and so is white space inside of one.
std::vector<std::string> parseMessageIDs(std::string_view text);

}
