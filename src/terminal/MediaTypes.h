#pragma once

#include <string_view>

namespace velmo {

/// The media type of a file by the ending of its name, for whoever opens it; "application/octet-stream" for others.
std::string_view mediaTypeOf(std::string_view name);

}
