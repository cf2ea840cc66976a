#pragma once

#include "base/Async.h"
#include "base/Clock.h"
#include "protocols/ServerConfig.h"

#include <string>

namespace velmo {

/// Signs in to an IMAP server once and leaves again (RFC 3501 §6.2). Ends quietly when the server accepts the login.
///
/// Throws AccountError: `cannotConnect` when the stream fails or a reply takes longer than 30 seconds,
/// `unexpectedResponse` when what answers is no IMAP server, `authenticationFailed` when it refuses the login, and
/// `invalidLogin` for a login that cannot be sent. What the server sends is bounded in bytes and in time. `clock`
/// outlives the operation, which runs on its own strand of `io`.
Async<void> probeIMAP(Executor io, Clock& clock, ServerConfig server, std::string username, std::string password);

/// The same for an SMTP submission server (RFC 5321, RFC 4954), by AUTH PLAIN, or LOGIN where only that is offered.
Async<void> probeSMTP(Executor io, Clock& clock, ServerConfig server, std::string username, std::string password);

}
