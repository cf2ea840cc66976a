#pragma once

#include <string>
#include <string_view>

namespace velmo {

/// Text with its HTML character references replaced: the numeric ones, and all names that HTML has. Others stay. Never
/// gives NUL.
std::string decodeEntities(std::string_view text);

}
