#pragma once

#include <string>
#include <string_view>

namespace velmo {

/// Text with its HTML character references replaced: the numeric ones, and the names that mail uses. Others stay.
std::string decodeEntities(std::string_view text);

}
