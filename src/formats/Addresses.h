#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velmo {

/// A mailbox of an address field (RFC 5322 §3.4).
struct MailAddress {
    std::optional<std::string> name; ///< decoded, in one line; never empty
    std::string email;               ///< as written, without white space, comments and route; never empty

    friend bool operator==(const MailAddress&, const MailAddress&) = default;
};

/// The mailboxes of an unfolded address field such as From or To, in order; groups give their members.
///
/// Reads the obsolete forms of RFC 5322 §4.4 too (routes, "address (name)"), and what is only nearly an address list:
/// semicolons between addresses, missing commas and brackets, unclosed quotes. What holds no address is left out; a
/// lone word counts as one, since local mail comes from "root". Never fails; linear in its input.
std::vector<MailAddress> parseAddressList(std::string_view headerValue);

}
