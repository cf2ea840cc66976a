#pragma once

#include "base/Bytes.h"

#include <string>

namespace velmo {

/// The SHA-256 digest (FIPS 180-4) of the bytes, as 64 lower-case hexadecimal digits.
std::string sha256Hex(BytesView bytes);

}
