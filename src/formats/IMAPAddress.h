#pragma once

#include <compare>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace velmo {

/// A mailbox with its display name (RFC 5322 §3.4), as it came from a server or goes into a header.
struct IMAPAddress {
    std::optional<std::string> name;
    std::string email;

    /// `email` alone, `name <email>`, or `"name" <email>` when the name holds a character that needs quoting. In the
    /// quoted form only the double quote is escaped.
    std::string formatted() const;

    friend bool operator==(const IMAPAddress&, const IMAPAddress&) = default;
    friend auto operator<=>(const IMAPAddress&, const IMAPAddress&) = default;
};

/// The lower-case domain of an address that is whole: one "@" with something before it, a "." in what follows but not
/// at its start, no blank or control character anywhere. Absent for any other text.
std::optional<std::string> domainOf(std::string_view email);

}

template <>
struct std::hash<velmo::IMAPAddress> {
    std::size_t operator()(const velmo::IMAPAddress& address) const noexcept {
        return std::hash<std::optional<std::string>>{}(address.name) * 31 ^ std::hash<std::string>{}(address.email);
    }
};
