#pragma once

#include "base/Date.h"
#include "formats/IMAPAddress.h"
#include "protocols/IMAPValue.h"

#include <optional>
#include <string>
#include <vector>

namespace velmo {

/// The envelope of a message (RFC 3501 §7.4.2), with encoded words decoded.
struct IMAPEnvelope {
    std::optional<Date> date;
    std::optional<std::string> subject;
    std::vector<IMAPAddress> from, sender, replyTo, to, cc, bcc;
    /// As sent, with angle brackets.
    std::optional<std::string> inReplyTo, messageID;

    friend bool operator==(const IMAPEnvelope&, const IMAPEnvelope&) = default;
};

/// Absent unless the value is a list of at least ten elements. Elements that cannot be read stay absent or empty;
/// group markers among the addresses are dropped.
std::optional<IMAPEnvelope> readEnvelope(IMAPValue value);

}
