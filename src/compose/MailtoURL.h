#pragma once

#include "formats/IMAPAddress.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velmo {

/// What a link of the scheme "mailto" (RFC 6068) asks to write.
///
/// Only the recipients, the subject and the body are taken; a link can attach nothing and set no other header. Texts
/// are UTF-8; the subject and the addresses are of one line, whatever was encoded in them.
struct MailtoURL {
    std::vector<IMAPAddress> to, cc, bcc; ///< each address once a list, in whatever case
    std::string subject;                  ///< of the first item that has one, as `body`
    std::string body;                     ///< LF between lines

    /// Absent when the scheme is another one. Never fails otherwise: what is no address is left out, and a "%" that
    /// encodes nothing stays. Linear in its input.
    static std::optional<MailtoURL> parse(std::string_view url);

    friend bool operator==(const MailtoURL&, const MailtoURL&) = default;
};

}
