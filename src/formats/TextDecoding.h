#pragma once

#include "base/Bytes.h"
#include "platform/Charset.h"

#include <optional>
#include <string>
#include <string_view>

namespace velmo {

/// The charset that a label in a message means, quotes and blanks around it ignored; absent when it means none.
std::optional<Charset> charsetEncoding(std::string_view label);

/// Bytes of a message as UTF-8 text: by the charset of the label when they fit it, else as UTF-8, else as
/// windows-1252, else as UTF-8 with U+FFFD for what is broken. An empty label means no charset. Never fails.
std::string decodeText(BytesView data, std::string_view charset);

}
