#pragma once

#include "base/Bytes.h"

#include <string_view>

namespace velmo {

/// How the bytes of a part travel (RFC 2045 §6).
enum class TransferEncoding { identity, base64, quotedPrintable };

/// What a Content-Transfer-Encoding field says; anything but "base64" and "quoted-printable" means the bytes
/// themselves.
TransferEncoding transferEncoding(std::string_view label);

/// The bytes behind their encoding. Never fails.
Bytes decodeTransfer(BytesView data, TransferEncoding encoding);
Bytes decodeTransfer(BytesView data, std::string_view label);

/// RFC 2045 §6.7. A "=" that introduces neither a byte nor a soft line break stays.
Bytes decodeQuotedPrintable(BytesView data);

/// RFC 2045 §6.8. Characters outside the alphabet are ignored, and so is all that follows padding. Data that stop
/// inside a group give what there is of it.
Bytes decodeLenientBase64(BytesView data);

}
