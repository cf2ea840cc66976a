#include "protocols/SMTPClient.h"

#include "base/Text.h"
#include "base/UserError.h"
#include "platform/LocalAddress.h"
#include "protocols/DotStuffing.h"
#include "protocols/SASL.h"
#include "protocols/SMTPSession.h"

#include <algorithm>
#include <fmt/format.h>
#include <optional>
#include <string_view>

namespace velmo {

namespace {

// --- What may be sent --------------------------------------------------------------------------------------------

/// An address ends at its bracket or at a blank, and a control character may end the line.
bool isFitAddress(std::string_view address) {
    return !address.empty() && std::ranges::none_of(address, [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return byte <= ' ' || byte == 0x7F || c == '<' || c == '>';
    });
}

/// A line break would be a command of its own, and NUL separates the words of PLAIN.
bool isFitLogin(std::string_view word) {
    return word.find_first_of(std::string_view("\r\n\0", 3)) == std::string_view::npos;
}

void refuseUnfit(const MailCredential& credential, const SMTPEnvelope& envelope) {
    if (!isFitLogin(credential.username()) || !isFitLogin(credential.secret()))
        throw SMTPError::unexpected("a line break in a command");
    if (envelope.recipients.empty()) throw SMTPError::unexpected("a message to nobody");
    if (!isFitAddress(envelope.sender) || !std::ranges::all_of(envelope.recipients, isFitAddress))
        throw SMTPError::unexpected("an address that can't be sent");
}

// --- Extensions --------------------------------------------------------------------------------------------------

/// What the server can do, a line each (RFC 5321 §4.1.1.1).
using Extensions = std::vector<std::string>;

bool offers(const Extensions& extensions, std::string_view keyword) {
    return std::ranges::any_of(extensions, [&](std::string_view line) {
        return text::equalsIgnoringCase(line.substr(0, line.find_first_of(" =")), keyword);
    });
}

/// Some servers announce their mechanisms once more as "AUTH=...", for clients older than the standard.
bool offersMechanism(const Extensions& extensions, std::string_view mechanism) {
    return std::ranges::any_of(extensions, [&](const std::string& line) {
        if (!text::startsWithIgnoringCase(line, "AUTH")) return false;
        const std::string words = text::replacedAll(line, "=", " ");
        return std::ranges::any_of(text::split(words, ' '),
                                   [&](std::string_view word) { return text::equalsIgnoringCase(word, mechanism); });
    });
}

// --- The conversation --------------------------------------------------------------------------------------------

constexpr int ready = 220;
constexpr int signedIn = 235;
constexpr int done = 250;
constexpr int goOn = 334;
constexpr int startMessage = 354;

/// Sends a command that must be answered with `code`; `stage` names it in the refusal.
Async<SMTPReply> command(SMTPSession& session, std::string line, int code, std::string stage) {
    SMTPReply reply = co_await session.exchange(std::move(line));
    if (reply.code != code) throw session.rejected(std::move(stage), reply);
    co_return reply;
}

/// By address: the name of a machine at home is nobody's business, and means nothing to a server.
Async<Extensions> sayHello(SMTPSession& session) {
    std::string line = fmt::format("EHLO [{}]", localIPv4Address().value_or("127.0.0.1"));
    const SMTPReply reply = co_await command(session, std::move(line), done, "EHLO");
    co_return reply.lines;
}

Async<Extensions> open(SMTPSession& session, ServerConfig::Security security) {
    const SMTPReply greeting = co_await session.readReply(smtpReplyTimeout);
    if (greeting.code != ready) throw session.rejected("greeting", greeting);
    Extensions extensions = co_await sayHello(session);
    if (security == ServerConfig::Security::startTLS) {
        co_await command(session, "STARTTLS", ready, "STARTTLS");
        session.startTLS();
        // What was announced in clear proves nothing.
        extensions = co_await sayHello(session);
    }
    co_return extensions;
}

/// One step of a sign-in.
Async<void> signInStep(SMTPSession& session, std::string line, int code) {
    const SMTPReply reply = co_await session.exchange(std::move(line));
    if (reply.code != code) throw SMTPError::authenticationFailed();
}

Async<void> signIn(SMTPSession& session, const Extensions& extensions, const MailCredential& credential) {
    if (credential.kind() == MailCredential::Kind::oauth) {
        co_await signInStep(session, "AUTH XOAUTH2 " + xoauth2Response(credential), signedIn);
    } else if (offersMechanism(extensions, "PLAIN")) {
        co_await signInStep(session, "AUTH PLAIN " + plainResponse(credential), signedIn);
    } else if (offersMechanism(extensions, "LOGIN")) {
        co_await signInStep(session, "AUTH LOGIN", goOn);
        co_await signInStep(session, text::base64(credential.username()), goOn);
        co_await signInStep(session, text::base64(credential.secret()), signedIn);
    } else {
        throw SMTPError::authenticationFailed();
    }
}

bool needsUTF8(const SMTPEnvelope& envelope) {
    const auto isBeyondASCII = [](char c) { return static_cast<unsigned char>(c) >= 0x80; };
    const auto holdsIt = [&](const std::string& address) { return std::ranges::any_of(address, isBeyondASCII); };
    return holdsIt(envelope.sender) || std::ranges::any_of(envelope.recipients, holdsIt);
}

bool hasEightBits(BytesView message) {
    return std::ranges::any_of(message, [](char c) { return static_cast<unsigned char>(c) >= 0x80; });
}

Async<void> sendEnvelope(SMTPSession& session, const Extensions& extensions, const SMTPEnvelope& envelope,
                         BytesView message) {
    std::string from = fmt::format("MAIL FROM:<{}>", envelope.sender);
    if (offers(extensions, "SIZE")) from += fmt::format(" SIZE={}", message.size());       // RFC 1870
    if (offers(extensions, "8BITMIME") && hasEightBits(message)) from += " BODY=8BITMIME"; // RFC 6152
    if (offers(extensions, "SMTPUTF8") && needsUTF8(envelope)) from += " SMTPUTF8";        // RFC 6531
    co_await command(session, std::move(from), done, "sender");
    for (const std::string& recipient : envelope.recipients)
        co_await command(session, fmt::format("RCPT TO:<{}>", recipient), done, recipient);
}

/// The next reply; absent when the send is cancelled first.
Async<std::optional<SMTPReply>> replyUnlessCancelled(SMTPSession& session) {
    try {
        co_return co_await session.readReply(smtpFinalReplyTimeout);
    } catch (...) {
        if (!isCancellation(std::current_exception())) throw;
    }
    co_return std::nullopt;
}

/// Ends the message and waits for what becomes of it. From here on the server may have it all, so a cancellation
/// shortens the wait and does not end it.
Async<SMTPReply> finishMessage(SMTPSession& session) {
    try {
        const auto end = [&]() -> Async<void> { return session.write("\r\n.\r\n"); };
        const bool wasCancelled = co_await uninterrupted(end);
        std::optional<SMTPReply> reply;
        if (!wasCancelled) reply = co_await replyUnlessCancelled(session);
        if (reply) co_return *reply;
        co_await ignoreCancellation();
        co_return co_await session.readReply(smtpLastReplyGrace);
    } catch (const MailConnectionError& error) {
        throw SMTPError::connection(error).asUncertain();
    } catch (const SMTPError& error) {
        throw error.asUncertain();
    }
}

Async<void> sendMessage(SMTPSession& session, BytesView message) {
    co_await command(session, "DATA", startMessage, "data");
    co_await session.write(dotStuffed(message));
    const SMTPReply reply = co_await finishMessage(session);
    if (reply.code == done) co_return;
    const SMTPError refusal = session.rejected("message", reply);
    // Only a code of 400 or more says that the server did not take the message (RFC 5321 §4.2.1).
    throw reply.code >= 400 ? refusal : refusal.asUncertain();
}

/// Says good-bye. The message is delivered, whatever becomes of this.
Async<void> leave(SMTPSession& session) {
    try {
        co_await session.write("QUIT\r\n");
    } catch (...) { // NOLINT(bugprone-empty-catch)
    }
}

}

Async<void> sendBySMTP(Executor io, Clock& clock, ServerConfig server, MailCredential credential, SMTPEnvelope envelope,
                       std::shared_ptr<const Bytes> message) {
    refuseUnfit(credential, envelope);
    const Executor strand = makeStrand(io);
    co_await runOn(strand, [&]() -> Async<void> {
        SMTPSession session(strand, clock, server, credential);
        try {
            const Extensions extensions = co_await open(session, server.security);
            co_await signIn(session, extensions, credential);
            co_await sendEnvelope(session, extensions, envelope, *message);
            co_await sendMessage(session, *message);
        } catch (const MailConnectionError& error) {
            throw SMTPError::connection(error);
        }
        co_await leave(session);
    });
}

}
