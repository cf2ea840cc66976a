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

    /// What is taken from a server, in bytes. Before the sign-in anybody on the way may be talking.
    struct Limits {
        std::size_t line;
        std::size_t literal;
        std::size_t response;    ///< with all its lines and literals
        std::size_t keptAnswer;  ///< the untagged responses to one command that are held until its end
        std::size_t readAnswer;  ///< those that are read as they come
        std::size_t answerLines; ///< responses to one command
    };
    static constexpr Limits strangers{65'536, 65'536, 131'072, 1 << 20, 1 << 20, 1'000};
    static constexpr Limits signedIn{16 << 20, 256 << 20, 320 << 20, 64 << 20, 640 << 20, 2'000'000};
    const Limits& limits() const { return *limits_; }
    void noteSignIn() { limits_ = &signedIn; }

    /// The next response (RFC 3501 §4.3, §7): lines and literals until a line announces no literal. `timeout` is what
    /// each wait for bytes may take. Throws MailConnectionError (`tooMuch` beyond the limits), or IMAPError::unexpected
    /// with the beginning of a response that cannot be read; then the next call reads the response after it. A read
    /// that times out or is cancelled loses nothing: the next call goes on where it stopped.
    Async<IMAPResponse> read(Duration timeout);

    /// Of the last response, as it came.
    std::size_t lastSize() const { return lastSize_; }

    const std::string& host() const { return connection_.host(); }

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
    std::size_t lastSize_ = 0;
    const Limits* limits_ = &strangers;
};

}
