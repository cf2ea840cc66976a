#pragma once

#include <string>
#include <string_view>

namespace velmo {

/// UTF-8 text without the format characters that show nothing: zero-width spaces and joiners, soft hyphens, marks of
/// direction. Joiners stay where they shape a script or an emoji, and so do the tags of a flag.
std::string withoutInvisibles(std::string_view utf8);

}
