#pragma once

#include "base/Async.h"
#include "base/Bytes.h"
#include "base/Clock.h"
#include "protocols/IMAPResponse.h"
#include "protocols/MailConnection.h"
#include "protocols/SecretMask.h"
#include "protocols/ServerConfig.h"

#include <cstddef>
#include <string>
#include <vector>

namespace velmo {

/// One connection on which whole IMAP responses are read; the lower half of IMAPClient, and serial as that is.
class IMAPSession {
  public:
    /// `secrets` never appear in an error.
    IMAPSession(Executor io, Clock& clock, const ServerConfig& server, std::vector<std::string> secrets);

    /// The next response (RFC 3501 §4.3, §7): lines and literals until a line announces no literal. `timeout` is what
    /// each wait for bytes may take. Throws MailConnectionError, or IMAPError::unexpected with the beginning of a
    /// response that cannot be read; then the next call reads the response after it. A read that times out or is
    /// cancelled loses nothing: the next call goes on where it stopped.
    Async<IMAPResponse> read(Duration timeout);

    Async<void> write(Bytes bytes);
    void startTLS() { connection_.startTLS(); }
    void close() { connection_.close(); }

    /// The text without secrets.
    std::string withoutSecrets(BytesView text) const { return secrets_.masked(text); }

  private:
    MailConnection connection_;
    SecretMask secrets_;
    /// The response that is arriving.
    Bytes bytes_;
    std::size_t literalBytesMissing_ = 0;
};

}
