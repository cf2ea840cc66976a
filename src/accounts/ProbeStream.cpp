#include "accounts/ProbeStream.h"

#include "accounts/AccountError.h"
#include "base/Text.h"

#include <algorithm>
#include <chrono>

namespace velmo {

namespace {

constexpr std::size_t chunkSize = 4096;

}

ProbeStream::ProbeStream(Executor io, Clock& clock, const ServerConfig& server, std::string protocol)
    : clock_(clock),
      protocol_(std::move(protocol)),
      connection_(std::move(io), clock, server.host, server.port, server.security),
      end_(clock.instant() + probeLimit) {}

Async<std::string> ProbeStream::readLine() {
    const Instant deadline = std::min<Instant>(clock_.instant() + lineLimit, end_);
    while (true) {
        const auto end = buffer_.find("\r\n", searched_);
        if (end != Bytes::npos) {
            std::string line = text::repairedUTF8(BytesView(buffer_).substr(0, end));
            buffer_.erase(0, end + 2);
            searched_ = 0;
            co_return line;
        }
        searched_ = buffer_.empty() ? 0 : buffer_.size() - 1;
        co_await fill(deadline);
    }
}

Async<void> ProbeStream::fill(Instant deadline) {
    if (received_ >= byteLimit) throw AccountError::unexpectedResponse(protocol_);
    // Rounded up: a wait of nothing at all would not even look.
    const auto left = std::chrono::ceil<Duration>(deadline - clock_.instant());
    if (left <= Duration::zero()) throw AccountError::cannotConnect(connection_.host());
    try {
        received_ += co_await connection_.appendBytes(buffer_, std::min(chunkSize, byteLimit - received_), left);
    } catch (const MailConnectionError& error) {
        throw AccountError::cannotConnect(error.host());
    }
}

Async<void> ProbeStream::write(Bytes bytes) {
    try {
        co_await connection_.write(std::move(bytes));
    } catch (const MailConnectionError& error) {
        throw AccountError::cannotConnect(error.host());
    }
}

Async<void> ProbeStream::leave(Bytes farewell) {
    try {
        co_await connection_.write(std::move(farewell));
    } catch (const MailConnectionError&) {
        // The server has accepted the login; how it takes the farewell says nothing.
    }
    connection_.close();
}

void ProbeStream::startTLS() {
    // What came in clear may have been put there by anyone, so none of it reaches the encrypted session.
    buffer_.clear();
    searched_ = 0;
    connection_.startTLS();
}

}
