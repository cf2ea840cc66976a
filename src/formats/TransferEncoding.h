#pragma once

#include "base/Bytes.h"

#include <string_view>

namespace velmo {

/// The bytes behind a Content-Transfer-Encoding (RFC 2045 §6) with this label: "base64" and "quoted-printable" are
/// decoded, for any other label the bytes are given as they are. Never fails.
Bytes decodeTransfer(BytesView data, std::string_view label);

/// RFC 2045 §6.7. A "=" that introduces neither a byte nor a soft line break stays.
Bytes decodeQuotedPrintable(BytesView data);

/// RFC 2045 §6.8. Characters outside the alphabet are ignored. Empty when the rest does not come in whole groups of
/// four, the last of them padded.
Bytes decodeLenientBase64(BytesView data);

}
