#include "accounts/ServerProbe.h"
#include "accounts/AccountError.h"
#include "accounts/ProbeStream.h"
#include "base/ManualClock.h"
#include "base/Runtime.h"
#include "support/ScriptedServer.h"

#include <gtest/gtest.h>
#include <stop_token>
#include <thread>

namespace velmo { namespace {

using Security = ServerConfig::Security;
using test::Cut;
using test::ScriptedServer;

using Probe = Async<void> (*)(Executor, Clock&, ServerConfig, std::string, std::string);

const std::string accepted = "accepted";

/// What the probe ends with: the sentence of its failure, or "accepted".
std::string outcome(Runtime& runtime, Clock& clock, Probe probe, int port, Security security,
                    const std::string& username = "ada", const std::string& password = "secret") {
    const ServerConfig server("localhost", port, security);
    try {
        runtime.run([&] { return probe(runtime.executors().io, clock, server, username, password); });
        return accepted;
    } catch (const AccountError& error) {
        return error.sentence();
    } catch (const std::exception& error) {
        return std::string("unexpected: ") + error.what();
    }
}

std::string words(const AccountError& error) {
    return error.sentence();
}

struct Case {
    const char* name;
    Probe probe;
    Security security;
    const char* transcript;
    std::string expected;
};

ScriptedServer::Security serverSecurity(Security security) {
    return security == Security::tls ? ScriptedServer::Security::tls : ScriptedServer::Security::plain;
}

void run(const Case& test) {
    SCOPED_TRACE(test.name);
    test::forEachCut([&](Cut cut) {
        SystemClock clock;
        Runtime runtime;
        ScriptedServer server(test.transcript, {serverSecurity(test.security), cut});
        EXPECT_EQ(outcome(runtime, clock, test.probe, server.port(), test.security), test.expected);
        EXPECT_EQ(server.verdict(), "");
    });
}

TEST(ServerProbe, IMAP) {
    const std::vector<Case> cases{
        {"plain login", probeIMAP, Security::tls,
         "S: * OK ready\nC: a1 LOGIN \"ada\" \"secret\"\nS: * CAPABILITY IMAP4rev1\nS: a10 OK no\nS: a1 Ok done\n"
         "C: a2 LOGOUT\nCLOSE",
         accepted},
        {"pre-authenticated server still gets a login", probeIMAP, Security::tls,
         "S: * PREAUTH hello\nC: a1 LOGIN \"ada\" \"secret\"\nS: a1 OK\nC: a2 LOGOUT", accepted},
        {"upgraded", probeIMAP, Security::startTLS,
         "S: * OK ready\nC: a0 STARTTLS\nS: a0 OK go\nTLS\nC: a1 LOGIN \"ada\" \"secret\"\nS: a1 NO wrong",
         words(AccountError::authenticationFailed("IMAP"))},
        {"upgrade refused: no password in clear", probeIMAP, Security::startTLS,
         "S: * OK ready\nC: a0 STARTTLS\nS: a0 BAD what", words(AccountError::unexpectedResponse("IMAP"))},
        {"refused", probeIMAP, Security::tls, "S: * OK ready\nC~ a1 LOGIN *\nS: a1 BAD no",
         words(AccountError::authenticationFailed("IMAP"))},
        {"turned away", probeIMAP, Security::tls, "S: * BYE busy", words(AccountError::unexpectedResponse("IMAP"))},
        {"another protocol", probeIMAP, Security::tls, "S: 220 smtp.example.org",
         words(AccountError::unexpectedResponse("IMAP"))},
        {"closed at once", probeIMAP, Security::tls, "CLOSE", words(AccountError::cannotConnect("localhost"))},
        {"closed in the login", probeIMAP, Security::tls, "S: * OK ready\nC~ a1 LOGIN *\nS: * BYE\nCLOSE",
         words(AccountError::cannotConnect("localhost"))},
    };
    for (const auto& test : cases) run(test);
}

TEST(ServerProbe, SMTP) {
    // base64 of NUL ada NUL secret
    const std::vector<Case> cases{
        {"AUTH PLAIN", probeSMTP, Security::tls,
         "S: 220-hello\nS: 220 ready\nC: EHLO localhost\nS: 250-mail\nS: 250-auth login plain\nS: 250 SIZE 1\n"
         "C: AUTH PLAIN AGFkYQBzZWNyZXQ=\nS: 235 in\nC: QUIT",
         accepted},
        {"no AUTH line", probeSMTP, Security::tls,
         "S: 220 ready\nC: EHLO localhost\nS: 250\nC: AUTH PLAIN AGFkYQBzZWNyZXQ=\nS: 235\nC: QUIT\nCLOSE", accepted},
        {"neither word", probeSMTP, Security::tls,
         "S: 220 ready\nC: EHLO localhost\nS: 250-AUTH XOAUTH2\nS: 250 AUTH LOGIN\nC: AUTH PLAIN AGFkYQBzZWNyZXQ=\n"
         "S: 535-no\nS: 535 no",
         words(AccountError::authenticationFailed("SMTP"))},
        {"AUTH LOGIN after an upgrade", probeSMTP, Security::startTLS,
         "S: 220 ready\nC: EHLO localhost\nS: 250-AUTH PLAIN\nS: 250 STARTTLS\nC: STARTTLS\n"
         "S: 220 go\nTLS\nC: EHLO localhost\nS: 250 AUTH LOGIN\nC: AUTH LOGIN\nS: 334 VXNl\n"
         "C: YWRh\nS: 334 UGFz\nC: c2VjcmV0\nS: 235 in\nC: QUIT",
         accepted},
        {"AUTH LOGIN refused at the name", probeSMTP, Security::tls,
         "S: 220 ready\nC: EHLO localhost\nS: 250 AUTH LOGIN\nC: AUTH LOGIN\nS: 334 x\nC: YWRh\nS: 500 no",
         words(AccountError::authenticationFailed("SMTP"))},
        {"upgrade refused", probeSMTP, Security::startTLS,
         "S: 220 ready\nC: EHLO localhost\nS: 250 STARTTLS\nC: STARTTLS\nS: 454 later",
         words(AccountError::unexpectedResponse("SMTP"))},
        {"not ready", probeSMTP, Security::tls, "S: 554 go away", words(AccountError::unexpectedResponse("SMTP"))},
        {"hello refused", probeSMTP, Security::tls, "S: 220 x\nC: EHLO localhost\nS: 502 what",
         words(AccountError::unexpectedResponse("SMTP"))},
        {"short line", probeSMTP, Security::tls, "S: 22", words(AccountError::unexpectedResponse("SMTP"))},
        {"no number", probeSMTP, Security::tls, "S: * OK ready", words(AccountError::unexpectedResponse("SMTP"))},
        {"a sign is no digit", probeSMTP, Security::tls, "S: +22 x", words(AccountError::unexpectedResponse("SMTP"))},
    };
    for (const auto& test : cases) run(test);
}

TEST(ServerProbe, WhatWasSlippedInBeforeTheUpgradeIsDropped) {
    const Case cases[]{
        {"IMAP", probeIMAP, Security::startTLS,
         "S: * OK ready\nC: a0 STARTTLS\nS> a0 OK go\\r\\na1 OK forged\\r\\n\nTLS\nC~ a1 LOGIN *\nS: a1 NO wrong",
         words(AccountError::authenticationFailed("IMAP"))},
        {"SMTP", probeSMTP, Security::startTLS,
         "S: 220 ready\nC: EHLO localhost\nS: 250 x\nC: STARTTLS\nS> 220 go\\r\\n250 AUTH LOGIN\\r\\n\nTLS\n"
         "C: EHLO localhost\nS: 250 AUTH PLAIN\nC~ AUTH PLAIN *\nS: 235 in\nC: QUIT",
         accepted},
    };
    for (const auto& test : cases) {
        SystemClock clock;
        Runtime runtime;
        ScriptedServer server(test.transcript);
        EXPECT_EQ(outcome(runtime, clock, test.probe, server.port(), test.security), test.expected) << test.name;
        EXPECT_EQ(server.verdict(), "") << test.name;
    }
}

TEST(ServerProbe, EscapesTheLoginAndRefusesOneThatCannotBeSent) {
    SystemClock clock;
    Runtime runtime;
    {
        ScriptedServer server("S: * OK\nC: a1 LOGIN \"a\\\"d\\\\a\" \"\\\\\\\"p\u00e4ss\"\nS: a1 OK\nC: a2 LOGOUT",
                              ScriptedServer::Security::tls);
        EXPECT_EQ(outcome(runtime, clock, probeIMAP, server.port(), Security::tls, "a\"d\\a", "\\\"p\u00e4ss"),
                  accepted);
        EXPECT_EQ(server.verdict(), "");
    }
    const std::string nul(1, '\0');
    for (const auto& bad : {std::string("a\r\na3 DELETE INBOX"), std::string("a\n"), std::string("\ra"), "a" + nul})
        for (const Probe probe : {probeIMAP, probeSMTP}) {
            ScriptedServer server("");
            EXPECT_EQ(outcome(runtime, clock, probe, server.port(), Security::startTLS, bad),
                      words(AccountError::invalidLogin()));
            EXPECT_EQ(outcome(runtime, clock, probe, server.port(), Security::startTLS, "ada", bad),
                      words(AccountError::invalidLogin()));
            EXPECT_EQ(server.connections(), 0);
        }
}

TEST(ServerProbe, EndsWhateverTheServerSends) {
    const std::string flood(2 * ProbeStream::byteLimit, 'x');
    std::string lines;
    while (lines.size() < 2 * ProbeStream::byteLimit) lines += "S: 220-more and more and more and more and more\n";
    SystemClock clock;
    Runtime runtime;
    {
        ScriptedServer server("S> " + flood);
        EXPECT_EQ(outcome(runtime, clock, probeIMAP, server.port(), Security::startTLS),
                  words(AccountError::unexpectedResponse("IMAP")));
    }
    {
        ScriptedServer server(lines);
        EXPECT_EQ(outcome(runtime, clock, probeSMTP, server.port(), Security::startTLS),
                  words(AccountError::unexpectedResponse("SMTP")));
    }
}

TEST(ServerProbe, ASilentServerIsOneThatCannotBeReached) {
    for (const char* transcript : {"PAUSE", "S: * OK ready\nC: a0 STARTTLS\nS> a0 O\nPAUSE"}) {
        ManualClock clock;
        Runtime runtime;
        ScriptedServer server(transcript);
        // Every wait that somebody begins lasts as long as it may.
        std::jthread time([&](std::stop_token stop) {
            for (; !stop.stop_requested(); std::this_thread::yield())
                if (server.connections() > 0 && clock.waiting() > 0) clock.advance(ProbeStream::lineLimit);
        });
        EXPECT_EQ(outcome(runtime, clock, probeIMAP, server.port(), Security::startTLS),
                  words(AccountError::cannotConnect("localhost")));
    }
}

}}
