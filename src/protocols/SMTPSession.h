#pragma once

#include "base/Async.h"
#include "base/Bytes.h"
#include "base/Clock.h"
#include "protocols/MailConnection.h"
#include "protocols/MailCredential.h"
#include "protocols/SMTPError.h"
#include "protocols/SMTPReply.h"
#include "protocols/SecretMask.h"
#include "protocols/ServerConfig.h"

#include <cstddef>
#include <string>

namespace velmo {

/// One connection on which commands go out and whole replies come in; the lower half of `sendBySMTP`. One owner, on one
/// serial executor. Reads and writes throw MailConnectionError, or SMTPError::unexpected for what is no reply; its
/// errors hold no secret of the credential.
class SMTPSession {
  public:
    /// `clock` outlives the session.
    SMTPSession(Executor strand, Clock& clock, const ServerConfig& server, const MailCredential& credential);

    /// The next reply. `lineTimeout` is what each of its lines may take, the opening of the connection included. Cut
    /// short by a cancellation, it loses nothing: the next call goes on where this one stopped.
    Async<SMTPReply> readReply(Duration lineTimeout);

    /// Sends one command, without its CR LF, and reads the reply to it.
    Async<SMTPReply> exchange(std::string command);

    Async<void> write(Bytes bytes);

    /// Drops what was received in clear and not read.
    void startTLS();
    void close() { connection_.close(); }

    /// What to throw for a reply that is a refusal.
    SMTPError rejected(std::string stage, const SMTPReply& reply) const;

  private:
    Async<void> fill(Instant deadline);

    Clock& clock_;
    SecretMask secrets_;
    MailConnection connection_;
    SMTPReplyReader reader_;
    Bytes buffer_;
    /// Where the search for a line end goes on.
    std::size_t searched_ = 0;
};

}
