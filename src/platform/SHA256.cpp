#include "platform/SHA256.h"

#include <array>
#include <fmt/format.h>
#include <openssl/sha.h>

namespace velmo {

std::string sha256Hex(BytesView bytes) {
    std::array<unsigned char, SHA256_DIGEST_LENGTH> digest{};
    SHA256(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(), digest.data());
    std::string out;
    out.reserve(2 * digest.size());
    for (const auto octet : digest) fmt::format_to(std::back_inserter(out), "{:02x}", octet);
    return out;
}

}
