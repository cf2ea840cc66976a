#pragma once

#include "base/Async.h"
#include "base/Bytes.h"
#include "base/Clock.h"
#include "protocols/MailCredential.h"
#include "protocols/SMTPError.h"
#include "protocols/ServerConfig.h"

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace velmo {

/// From whom and to whom a message goes on the wire: bare addresses, without names and angle brackets.
struct SMTPEnvelope {
    SMTPEnvelope(std::string sender_, std::vector<std::string> recipients_)
        : sender(std::move(sender_)), recipients(std::move(recipients_)) {}

    std::string sender;
    std::vector<std::string> recipients;
};

/// What each line of a reply may take.
inline constexpr Duration smtpReplyTimeout{60'000};
/// What the answer to a whole message may take (RFC 5321 §4.5.3.2.6): who gives up earlier sends it once more.
inline constexpr Duration smtpFinalReplyTimeout{600'000};
/// What is left of that for the answer to a whole message once the send has been cancelled.
inline constexpr Duration smtpLastReplyGrace{5'000};

/// Delivers one message to all recipients or to none (RFC 5321), on a connection of its own; ends when the server has
/// accepted it. TLS comes first always (RFC 8314, RFC 3207), then the sign-in by XOAUTH2, PLAIN (RFC 4616) or LOGIN.
/// `message` has CR LF line ends (RFC 5322).
///
/// Throws SMTPError; `isUncertain` tells whether the message may have arrived nevertheless. An address or a login that
/// can't stand in a command, and a message to nobody, are refused with `unexpected` before anything is sent.
///
/// Cancelling ends the send at once while nothing can have been delivered. Once the end of the message is on its way,
/// its answer still has `smtpLastReplyGrace` to come, and the send ends as if nobody had cancelled it.
///
/// Runs on its own strand of `io`; `clock` outlives the operation.
Async<void> sendBySMTP(Executor io, Clock& clock, ServerConfig server, MailCredential credential, SMTPEnvelope envelope,
                       std::shared_ptr<const Bytes> message);

}
