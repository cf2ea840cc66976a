#include "base/Text.h"
#include "protocols/IMAPClient.h"
#include "protocols/IMAPSession.h"
#include "protocols/IMAPSyntax.h"
#include "protocols/SASL.h"

#include <utility>

namespace velmo {

namespace {

/// With the form of LOGIN.
std::vector<std::string> imapSecretForms(const MailCredential& credential) {
    std::vector<std::string> forms = secretForms(credential);
    const std::string quoted = imapQuoted(credential.secret());
    forms.push_back(quoted.substr(1, quoted.size() - 2));
    return forms;
}

std::vector<std::string_view> wordsOfCode(const std::optional<std::string>& code) {
    return code ? text::split(*code, ' ') : std::vector<std::string_view>{};
}

}

Async<void> IMAPClient::connect() {
    return runOn(executor_, [this]() -> Async<void> { return openSession(); });
}

Async<void> IMAPClient::openSession() {
    if (session_) co_return;
    refuseUnfitCredential();
    const Session session = std::make_shared<IMAPSession>(executor_, clock_, server_, imapSecretForms(credential_));
    session_ = session;
    try {
        co_await greet(*session);
        if (server_.security == ServerConfig::Security::startTLS) {
            co_await execute("STARTTLS");
            session->startTLS();
            // What was announced in clear proves nothing.
            capabilities_.clear();
        }
        if (capabilities_.empty()) co_await capability();
        co_await authenticate();
        session->noteSignIn();
        co_await capability();
        co_await enableExtensions();
    } catch (const MailConnectionError& error) {
        closeSession(session);
        throw IMAPError::connection(error);
    } catch (...) {
        closeSession(session);
        throw;
    }
}

Async<void> IMAPClient::greet(IMAPSession& session) {
    const IMAPResponse greeting = co_await session.read(imapReadTimeout);
    const bool isWelcome =
        greeting.kind() == IMAPResponse::Kind::untaggedStatus &&
        (greeting.status() == IMAPResponse::Status::ok || greeting.status() == IMAPResponse::Status::preauth);
    if (!isWelcome) throw IMAPError::unexpected("greeting");
    const std::vector<std::string_view> words = wordsOfCode(greeting.code());
    if (!words.empty() && text::equalsIgnoringCase(words[0], "CAPABILITY"))
        setCapabilities({words.begin() + 1, words.end()});
}

Async<void> IMAPClient::enableExtensions() {
    if (!has("ENABLE") || !has("CONDSTORE")) co_return;
    try {
        co_await execute("ENABLE CONDSTORE");
    } catch (const IMAPError&) {
        // It does without, unless the session itself is gone.
        if (!session_) throw;
    }
}

void IMAPClient::setCapabilities(const std::vector<std::string_view>& words) {
    capabilities_.clear();
    for (const std::string_view word : words) {
        if (!word.empty()) capabilities_.insert(text::raised(word));
    }
}

Async<void> IMAPClient::capability() {
    return runOn(executor_, [this]() -> Async<void> {
        const auto responses = co_await execute("CAPABILITY");
        const auto found = untagged(responses, "CAPABILITY");
        if (found.empty()) co_return;
        std::vector<std::string_view> words;
        for (const IMAPValue word : found.front()) {
            if (word.isAtom()) words.push_back(word.bytes());
        }
        words.erase(words.begin());
        setCapabilities(words);
    });
}

void IMAPClient::refuseUnfitCredential() const {
    refuseLineBreaks({credential_.username(), credential_.secret()});
}

Async<void> IMAPClient::authenticate() {
    return runOn(executor_, [this]() -> Async<void> {
        refuseUnfitCredential();
        try {
            co_await signIn();
        } catch (const IMAPError& error) {
            if (error.kind() != IMAPError::Kind::commandFailed) throw;
            throw IMAPError::authenticationFailed(error.response());
        }
    });
}

Async<void> IMAPClient::signIn() {
    std::string command;
    ContinuationHandler onContinuation;
    if (credential_.kind() == MailCredential::Kind::oauth) {
        command = "AUTHENTICATE XOAUTH2 " + xoauth2Response(credential_);
        // A server that refuses sends a challenge first, and its NO after an empty line.
        onContinuation = [](const std::string&) { return Bytes("\r\n"); };
    } else if (has("AUTH=PLAIN") && has("SASL-IR")) {
        command = "AUTHENTICATE PLAIN " + plainResponse(credential_);
    } else if (has("AUTH=PLAIN")) {
        command = "AUTHENTICATE PLAIN";
        onContinuation = [this](const std::string&) { return plainResponse(credential_) + "\r\n"; };
    } else {
        command = "LOGIN " + imapQuoted(credential_.username()) + " " + imapQuoted(credential_.secret());
    }
    co_await execute(std::move(command), Sensitivity::secret, std::move(onContinuation));
}

}
