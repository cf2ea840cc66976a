#include "protocols/IMAPSession.h"

#include "base/Text.h"

#include <algorithm>
#include <utility>

namespace velmo {

namespace {

/// How much of an unreadable response an error shows.
constexpr std::size_t shownLength = 120;

}

IMAPSession::IMAPSession(Executor io, Clock& clock, const ServerConfig& server, std::vector<std::string> secrets)
    : connection_(std::move(io), clock, server.host, server.port, server.security), secrets_(std::move(secrets)) {
    std::erase(secrets_, "");
    for (const std::string& secret : secrets_) longestSecret_ = std::max(longestSecret_, secret.size());
}

Async<IMAPResponse> IMAPSession::read(Duration timeout) {
    for (;;) {
        while (literalBytesMissing_ > 0)
            literalBytesMissing_ -= co_await connection_.appendBytes(bytes_, literalBytesMissing_, timeout);
        const std::size_t lineStart = bytes_.size();
        co_await connection_.appendLine(bytes_, timeout);
        const auto announced = literalLength(BytesView(bytes_).substr(lineStart));
        if (!announced) break;
        bytes_ += "\r\n";
        literalBytesMissing_ = static_cast<std::size_t>(*announced);
    }
    Bytes whole = std::exchange(bytes_, {});
    // The parser takes the bytes over; a secret that begins in what is shown must be there to its end.
    const Bytes beginning = whole.substr(0, shownLength + longestSecret_);
    try {
        co_return parseResponse(std::move(whole));
    } catch (const IMAPParseError&) {
        throw IMAPError::unexpected(text::repairedUTF8(withoutSecrets(beginning, shownLength)));
    }
}

Async<void> IMAPSession::write(Bytes bytes) {
    co_await connection_.write(std::move(bytes));
}

std::string IMAPSession::withoutSecrets(BytesView text, std::size_t limit) const {
    std::string result;
    for (std::size_t i = 0; i < std::min(limit, text.size());) {
        const std::size_t length = secretLengthAt(text.substr(i));
        if (length > 0) {
            result += "***";
            i += length;
        } else {
            result += text[i++];
        }
    }
    return result;
}

/// The length of the longest secret that the text begins with; 0 when it begins with none.
std::size_t IMAPSession::secretLengthAt(BytesView text) const {
    std::size_t length = 0;
    for (const std::string& secret : secrets_) {
        if (text.starts_with(secret)) length = std::max(length, secret.size());
    }
    return length;
}

}
