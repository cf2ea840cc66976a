#include "protocols/IMAPSession.h"

#include "base/Text.h"

#include <utility>

namespace velmo {

namespace {

/// How much of an unreadable response an error shows.
constexpr std::size_t shownLength = 120;

}

IMAPSession::IMAPSession(Executor io, Clock& clock, const ServerConfig& server, std::vector<std::string> secrets)
    : connection_(std::move(io), clock, server.host, server.port, server.security), secrets_(std::move(secrets)) {}

Async<IMAPResponse> IMAPSession::read(Duration timeout) {
    for (;;) {
        while (literalBytesMissing_ > 0)
            literalBytesMissing_ -= co_await connection_.appendBytes(bytes_, literalBytesMissing_, timeout);
        const std::size_t lineStart = bytes_.size();
        co_await connection_.appendLine(bytes_, timeout, limits_->line);
        const auto announced = literalLength(BytesView(bytes_).substr(lineStart));
        if (!announced) break;
        bytes_ += "\r\n";
        const bool isTooMuch = std::cmp_greater(*announced, limits_->literal) ||
                               bytes_.size() + static_cast<std::size_t>(*announced) > limits_->response;
        if (isTooMuch) throw MailConnectionError::tooMuch(host());
        literalBytesMissing_ = static_cast<std::size_t>(*announced);
    }
    Bytes whole = std::exchange(bytes_, {});
    lastSize_ = whole.size();
    // The parser takes the bytes over; a secret that begins in what is shown must be there to its end.
    const Bytes beginning = whole.substr(0, shownLength + secrets_.longest());
    try {
        co_return parseResponse(std::move(whole));
    } catch (const IMAPParseError&) {
        throw IMAPError::unexpected(text::repairedUTF8(secrets_.masked(beginning, shownLength)));
    }
}

Async<void> IMAPSession::write(Bytes bytes) {
    co_await connection_.write(std::move(bytes));
}

}
