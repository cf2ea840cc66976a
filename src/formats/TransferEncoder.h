#pragma once

#include "base/Bytes.h"

#include <cstddef>
#include <string_view>

namespace velmo {

/// Appends text in quoted-printable (RFC 2045 §6.7): lines end in CR LF, also where the text has a lone LF, and hold 76
/// characters at most. Everything but printable ASCII and inner blanks is encoded.
void appendQuotedPrintable(Bytes& out, std::string_view text);

/// Appends bytes in base64 (RFC 2045 §6.8), in lines of 76 characters with CR LF between them.
void appendBase64Lines(Bytes& out, BytesView data);

/// The exact length of what `appendBase64Lines` appends.
std::size_t lengthInBase64Lines(std::size_t bytes);

}
