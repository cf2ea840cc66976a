#include "accounts/ServerProbe.h"

#include "accounts/AccountError.h"
#include "accounts/ProbeStream.h"
#include "base/Text.h"
#include "protocols/SMTPReply.h"

#include <string_view>

namespace velmo {

namespace {

using Security = ServerConfig::Security;

/// A line break in a login would be a command of its own, and NUL separates the words of AUTH PLAIN.
void checkLogin(std::string_view username, std::string_view password) {
    constexpr std::string_view forbidden("\r\n\0", 3);
    if (username.find_first_of(forbidden) != std::string_view::npos ||
        password.find_first_of(forbidden) != std::string_view::npos)
        throw AccountError::invalidLogin();
}

// --- IMAP --------------------------------------------------------------------------------------------------------

/// RFC 3501 §4.3
std::string quoted(std::string_view word) {
    return '"' + text::replacedAll(text::replacedAll(word, "\\", "\\\\"), "\"", "\\\"") + '"';
}

/// Sends "tag command" and gives whether the tagged reply is OK.
Async<bool> accepts(ProbeStream& stream, std::string_view tag, std::string_view command) {
    const std::string start = std::string(tag) + ' ';
    co_await stream.write(start + std::string(command) + "\r\n");
    while (true) {
        const std::string line = co_await stream.readLine();
        if (line.starts_with(start)) co_return text::startsWithIgnoringCase(line.substr(start.size()), "OK");
    }
}

Async<void> converseIMAP(ProbeStream& stream, Security security, const std::string& username,
                         const std::string& password) {
    const std::string greeting = co_await stream.readLine();
    if (!greeting.starts_with("* OK") && !greeting.starts_with("* PREAUTH"))
        throw AccountError::unexpectedResponse(stream.protocol());
    if (security == Security::startTLS) {
        if (!co_await accepts(stream, "a0", "STARTTLS")) throw AccountError::unexpectedResponse(stream.protocol());
        stream.startTLS();
    }
    const std::string login = "LOGIN " + quoted(username) + ' ' + quoted(password);
    if (!co_await accepts(stream, "a1", login)) throw AccountError::authenticationFailed(stream.protocol());
    co_await stream.leave("a2 LOGOUT\r\n");
}

// --- SMTP --------------------------------------------------------------------------------------------------------

Async<SMTPReply> readReply(ProbeStream& stream) {
    using Progress = SMTPReplyReader::Progress;
    SMTPReplyReader reader;
    for (Progress progress = Progress::more; progress == Progress::more;) {
        const std::string line = co_await stream.readLine();
        progress = reader.take(line);
        if (progress == Progress::broken) throw AccountError::unexpectedResponse(stream.protocol());
    }
    co_return reader.reply();
}

Async<SMTPReply> exchange(ProbeStream& stream, std::string_view command) {
    co_await stream.write(std::string(command) + "\r\n");
    co_return co_await readReply(stream);
}

Async<SMTPReply> expectReply(ProbeStream& stream, std::string_view command, int code, AccountError otherwise) {
    SMTPReply reply = co_await exchange(stream, command);
    if (reply.code != code) throw otherwise;
    co_return reply;
}

/// AUTH LOGIN is a relic; it is used only where the server offers it and nothing better.
bool offersOnlyLogin(const SMTPReply& greeting) {
    for (const auto& line : greeting.lines)
        if (text::startsWithIgnoringCase(line, "AUTH"))
            return text::containsIgnoringCase(line, "LOGIN") && !text::containsIgnoringCase(line, "PLAIN");
    return false;
}

Async<void> authenticate(ProbeStream& stream, const SMTPReply& greeting, const std::string& username,
                         const std::string& password) {
    const auto refused = AccountError::authenticationFailed(stream.protocol());
    if (offersOnlyLogin(greeting)) {
        co_await expectReply(stream, "AUTH LOGIN", 334, refused);
        co_await expectReply(stream, text::base64(username), 334, refused);
        co_await expectReply(stream, text::base64(password), 235, refused);
    } else {
        const std::string words = std::string(1, '\0') + username + '\0' + password;
        co_await expectReply(stream, "AUTH PLAIN " + text::base64(words), 235, refused);
    }
}

Async<void> converseSMTP(ProbeStream& stream, Security security, const std::string& username,
                         const std::string& password) {
    const auto unexpected = AccountError::unexpectedResponse(stream.protocol());
    constexpr std::string_view hello = "EHLO localhost";
    const SMTPReply welcome = co_await readReply(stream);
    if (welcome.code != 220) throw unexpected;
    SMTPReply greeting = co_await expectReply(stream, hello, 250, unexpected);
    if (security == Security::startTLS) {
        co_await expectReply(stream, "STARTTLS", 220, unexpected);
        stream.startTLS();
        greeting = co_await expectReply(stream, hello, 250, unexpected);
    }
    co_await authenticate(stream, greeting, username, password);
    co_await stream.leave("QUIT\r\n");
}

// --- Both --------------------------------------------------------------------------------------------------------

using Conversation = Async<void> (*)(ProbeStream&, Security, const std::string&, const std::string&);

Async<void> probe(Executor io, Clock& clock, ServerConfig server, std::string protocol, Conversation converse,
                  std::string username, std::string password) {
    checkLogin(username, password);
    const Executor strand = makeStrand(io);
    co_await runOn(strand, [&]() -> Async<void> {
        ProbeStream stream(strand, clock, server, protocol);
        co_await converse(stream, server.security, username, password);
    });
}

}

Async<void> probeIMAP(Executor io, Clock& clock, ServerConfig server, std::string username, std::string password) {
    return probe(std::move(io), clock, std::move(server), "IMAP", converseIMAP, std::move(username),
                 std::move(password));
}

Async<void> probeSMTP(Executor io, Clock& clock, ServerConfig server, std::string username, std::string password) {
    return probe(std::move(io), clock, std::move(server), "SMTP", converseSMTP, std::move(username),
                 std::move(password));
}

}
