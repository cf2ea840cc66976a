#pragma once

#include "base/Bytes.h"
#include "base/Clock.h"
#include "protocols/MailConnection.h"

#include <cstddef>
#include <string>

namespace velmo {

/// The connection of a server probe: lines in and out, bounded in bytes and in time against a server that never stops
/// talking. Failures are AccountErrors. One owner, on one serial executor.
class ProbeStream {
  public:
    /// What one line may take, the opening of the connection included.
    static constexpr Duration lineLimit{30'000};
    /// What a whole probe may take and receive.
    static constexpr Duration probeLimit{300'000};
    static constexpr std::size_t byteLimit = 256 * 1024;

    /// `protocol` is the word for the server in failures: "IMAP" or "SMTP". `clock` outlives the stream.
    ProbeStream(Executor io, Clock& clock, const ServerConfig& server, std::string protocol);

    /// One line without its CR LF. Throws AccountError::cannotConnect when it does not come, and `unexpectedResponse`
    /// when the server has sent more than a probe may take.
    Async<std::string> readLine();

    /// Throws AccountError::cannotConnect.
    Async<void> write(Bytes bytes);

    /// Sends a farewell that nobody waits for, and closes.
    Async<void> leave(Bytes farewell);

    void startTLS();

    const std::string& protocol() const { return protocol_; }

  private:
    Async<void> fill(Instant deadline);

    Clock& clock_;
    std::string protocol_;
    MailConnection connection_;
    Instant end_;
    Bytes buffer_;
    /// Where the search for a line end goes on.
    std::size_t searched_ = 0;
    std::size_t received_ = 0;
};

}
