#pragma once

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace velmo {

/// A universally unique identifier (RFC 4122). Its text form is upper-case everywhere in this system.
class UUID {
  public:
    /// The nil UUID, all zero.
    constexpr UUID() = default;

    /// A fresh version 4 UUID from the system's random source.
    static UUID random();

    /// Reads the 36-character text form in either case; absent for anything else.
    static std::optional<UUID> parse(std::string_view text);

    /// The UUID of these 16 octets; absent for any other number of octets.
    static std::optional<UUID> fromOctets(std::string_view octets);

    /// "E621E1F8-C36C-495A-93FC-0C247A3E6E5F"
    std::string text() const;

    friend constexpr auto operator<=>(const UUID&, const UUID&) = default;

    const std::array<std::uint8_t, 16>& octets() const { return octets_; }

  private:
    std::array<std::uint8_t, 16> octets_{};
};

}

template <>
struct std::hash<velmo::UUID> {
    std::size_t operator()(const velmo::UUID& id) const noexcept {
        std::size_t value = 14695981039346656037ULL;
        for (const auto octet : id.octets()) value = (value ^ octet) * 1099511628211ULL;
        return value;
    }
};
