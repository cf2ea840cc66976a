#include "protocols/SMTPSession.h"

#include "protocols/SASL.h"
#include "protocols/SMTPClient.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace velmo {

namespace {

constexpr std::size_t chunkSize = 4096;

}

SMTPSession::SMTPSession(Executor strand, Clock& clock, const ServerConfig& server, const MailCredential& credential)
    : clock_(clock),
      secrets_(secretForms(credential)),
      connection_(std::move(strand), clock, server.host, server.port, server.security) {}

Async<SMTPReply> SMTPSession::readReply(Duration lineTimeout) {
    using Progress = SMTPReplyReader::Progress;
    Progress progress = Progress::more;
    while (progress == Progress::more) {
        const Instant deadline = clock_.instant() + lineTimeout;
        std::size_t end = buffer_.find("\r\n", searched_);
        while (end == Bytes::npos) {
            // The last byte may be the CR of a pair.
            searched_ = buffer_.empty() ? 0 : buffer_.size() - 1;
            co_await fill(deadline);
            end = buffer_.find("\r\n", searched_);
        }
        const Bytes line = buffer_.substr(0, end);
        buffer_.erase(0, end + 2);
        searched_ = 0;
        progress = reader_.take(line);
        if (progress == Progress::broken) throw SMTPError::unexpected(secrets_.masked(line));
    }
    const SMTPReply reply = std::exchange(reader_, {}).reply();
    co_return reply;
}

Async<void> SMTPSession::fill(Instant deadline) {
    if (buffer_.size() > reader_.room()) throw SMTPError::unexpected(secrets_.masked(buffer_));
    // Rounded up: a wait of nothing at all would not even look.
    const auto left = std::chrono::ceil<Duration>(deadline - clock_.instant());
    if (left <= Duration::zero()) throw MailConnectionError::cannotConnect(connection_.host());
    co_await connection_.appendBytes(buffer_, chunkSize, left);
}

Async<SMTPReply> SMTPSession::exchange(std::string command) {
    co_await write(std::move(command) + "\r\n");
    co_return co_await readReply(smtpReplyTimeout);
}

Async<void> SMTPSession::write(Bytes bytes) {
    return connection_.write(std::move(bytes));
}

void SMTPSession::startTLS() {
    buffer_.clear();
    searched_ = 0;
    connection_.startTLS();
}

SMTPError SMTPSession::rejected(std::string stage, const SMTPReply& reply) const {
    const std::string words = secrets_.masked(reply.text());
    const bool isTemporary = reply.code >= 400 && reply.code < 500;
    return isTemporary ? SMTPError::deferred(std::move(stage), words) : SMTPError::rejected(std::move(stage), words);
}

}
