#pragma once

#include "base/Async.h"
#include "base/Bytes.h"
#include "base/Clock.h"
#include "protocols/MailConnectionError.h"
#include "protocols/ServerConfig.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace velmo {

/// The byte stream under a mail protocol: lines and counted bytes in, whole commands out.
///
/// It connects at the first read or write, over IPv6 and IPv4 (RFC 8305), with TLS 1.2 or better and a certificate
/// that is valid for `host` (RFC 6125) by the system's authorities. One owner at a time, who runs every operation on
/// one serial executor. It is never reconnected: after a failure the owner drops it.
///
/// Every read and write throws MailConnectionError (`cannotConnect` also when its time-out passed) or ends with a
/// cancellation. A read that timed out or was cancelled on an open stream has consumed nothing, and may be repeated;
/// after any other failure the stream is dead.
class MailConnection {
  public:
    /// What each piece of a write may take: a large message on a slow line goes out as long as the line moves.
    static constexpr Duration writeTimeout{30'000};
    static constexpr std::size_t writePiece = 65'536;

    /// Connects nothing yet. `clock` outlives the connection.
    MailConnection(Executor io, Clock& clock, std::string host, int port, ServerConfig::Security security);

    /// Closes the stream.
    ~MailConnection();
    MailConnection(const MailConnection&) = delete;
    MailConnection& operator=(const MailConnection&) = delete;

    const std::string& host() const;

    /// One line without its CR LF, as UTF-8; ill-formed bytes become U+FFFD. A lone LF ends no line. `timeout` is
    /// what each wait for bytes may take, the opening of the stream included.
    Async<std::string> readLine(Duration timeout);

    /// The same, as the bytes came.
    Async<Bytes> readLineData(Duration timeout);

    /// Exactly `count` bytes. Memory grows with the bytes that arrive, whatever the count. Bytes that had arrived
    /// before a failure are lost with it.
    Async<Bytes> readBytes(std::int64_t count, Duration timeout);

    /// Appends one line without its CR LF to `out`, or nothing at all. Fails with `tooMuch` when more than `limit`
    /// bytes have come without an end of the line.
    Async<void> appendLine(Bytes& out, Duration timeout, std::size_t limit = Bytes::npos);

    /// Appends at least one and at most `limit` bytes to `out`, and gives their number. `limit` 0 gives 0 at once.
    Async<std::size_t> appendBytes(Bytes& out, std::size_t limit, Duration timeout);

    /// Writes all of `bytes`.
    Async<void> write(Bytes bytes);

    /// Turns to TLS on the open stream (RFC 3207, RFC 3501 §6.2.1): what was received in clear and not read is
    /// dropped, and the handshake is part of the next read or write.
    void startTLS();

    /// Ends pending operations with a failure; they have let go of the stream soon after.
    void close();

  private:
    class Stream;
    std::shared_ptr<Stream> stream_;
};

}
