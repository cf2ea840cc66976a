#include "base/UUID.h"

#include "base/Text.h"

#include <algorithm>
#include <stdexcept>
#include <sys/random.h>

namespace velmo {

namespace {

constexpr bool isDashPlace(std::size_t place) {
    return place == 8 || place == 13 || place == 18 || place == 23;
}

}

UUID UUID::random() {
    UUID id;
    if (getrandom(id.octets_.data(), id.octets_.size(), 0) != static_cast<ssize_t>(id.octets_.size()))
        throw std::runtime_error("the system's random source failed");
    id.octets_[6] = static_cast<std::uint8_t>((id.octets_[6] & 0x0F) | 0x40);
    id.octets_[8] = static_cast<std::uint8_t>((id.octets_[8] & 0x3F) | 0x80);
    return id;
}

std::optional<UUID> UUID::parse(std::string_view text) {
    if (text.size() != 36) return std::nullopt;
    UUID id;
    std::size_t nibble = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (isDashPlace(i)) {
            if (text[i] != '-') return std::nullopt;
            continue;
        }
        const int value = text::hexValue(text[i]);
        if (value < 0) return std::nullopt;
        auto& octet = id.octets_[nibble / 2];
        octet = static_cast<std::uint8_t>(octet << 4 | value);
        ++nibble;
    }
    return id;
}

std::optional<UUID> UUID::fromOctets(std::string_view octets) {
    UUID id;
    if (octets.size() != id.octets_.size()) return std::nullopt;
    std::ranges::copy(octets, id.octets_.begin());
    return id;
}

std::string UUID::text() const {
    constexpr std::string_view digits = "0123456789ABCDEF";
    std::string out;
    out.reserve(36);
    for (const auto octet : octets_) {
        if (isDashPlace(out.size())) out += '-';
        out += digits[octet >> 4];
        out += digits[octet & 15];
    }
    return out;
}

}
