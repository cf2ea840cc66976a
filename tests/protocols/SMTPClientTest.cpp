#include "protocols/SMTPClient.h"

#include "base/ManualClock.h"
#include "base/Runtime.h"
#include "base/Task.h"
#include "base/Text.h"
#include "base/UserError.h"
#include "protocols/DotStuffing.h"
#include "protocols/IMAPClient.h"
#include "protocols/SMTPReply.h"
#include "support/Eventually.h"
#include "support/ScriptedServer.h"
#include "support/ServerTest.h"

#include <gtest/gtest.h>
#include <optional>
#include <set>
#include <stop_token>
#include <thread>

namespace velmo::test { namespace {

using Security = ServerConfig::Security;

const MailCredential password = MailCredential::password("ann", "secret");
const MailCredential token = MailCredential::oauth("ann@example.test", "ya29.token");
const std::string plain = "AGFubgBzZWNyZXQ=";
const SMTPEnvelope toBob("ann@example.test", {"bob@example.test"});
constexpr std::string_view message = "Subject: hi\r\n\r\n.hello\r\n";

SystemClock realTime;

/// What a send ends with; absent when the message was accepted.
std::optional<SMTPError> send(const ServerConfig& server, const MailCredential& credential = password,
                              const SMTPEnvelope& envelope = toBob, std::string_view bytes = message,
                              Clock& clock = realTime) {
    Runtime runtime;
    const auto shared = std::make_shared<const Bytes>(bytes);
    try {
        runtime.run([&] { return sendBySMTP(runtime.executors().io, clock, server, credential, envelope, shared); });
        return std::nullopt;
    } catch (const SMTPError& error) {
        return error;
    }
}

/// The start of a conversation, up to the reply to EHLO, and the sign-in.
const std::string hello = "S: 220 ready\nC~ EHLO [*.*.*.*]\n";
const std::string signedIn = hello + "S: 250 AUTH PLAIN\nC: AUTH PLAIN " + plain + "\nS: 235 in\n";
const std::string fromAnn = signedIn + "C: MAIL FROM:<ann@example.test>\n";
const std::string toBobStep = fromAnn + "S: 250 ok\nC: RCPT TO:<bob@example.test>\n";
const std::string body = "C: Subject: hi\nC: \nC: ..hello\nC: \nC: .\n";
const std::string toTheDot = toBobStep + "S: 250 ok\nC: DATA\nS: 354 go\n" + body;
const std::string delivery = "C: MAIL FROM:<ann@example.test>\nS: 250 ok\nC: RCPT TO:<bob@example.test>\nS: 250\n"
                             "C: DATA\nS: 354-go\nS: 354 on\n" +
                             body + "S: 250 taken\nC: QUIT\n";

const std::string upgraded = "TLS\nC~ EHLO [*.*.*.*]\nS: 250 AUTH LOGIN\nC: AUTH LOGIN\nS: 334\nC: YW5u\nS: 334\n"
                             "C: c2VjcmV0\nS: 235\n" +
                             delivery;

struct Conversation {
    const char* name;
    std::string transcript;
    std::optional<SMTPError> failure;
    Security security = Security::tls;
    MailCredential credential = password;
    SMTPEnvelope envelope = toBob;
};

ServerConfig configOf(const ScriptedServer& server, Security security) {
    return {"localhost", server.port(), security};
}

ScriptedServer::Security serverSecurity(Security security) {
    return security == Security::tls ? ScriptedServer::Security::tls : ScriptedServer::Security::plain;
}

void play(const std::vector<Conversation>& conversations) {
    for (const auto& test : conversations) {
        SCOPED_TRACE(test.name);
        forEachCut([&](Cut cut) {
            ScriptedServer server(test.transcript, {serverSecurity(test.security), cut});
            const auto failure = send(configOf(server, test.security), test.credential, test.envelope);
            EXPECT_EQ(failure, test.failure) << (failure ? failure->sentence() : "sent");
            EXPECT_EQ(server.verdict(), "");
        });
    }
}

TEST(SMTPClient, DeliversByWhatTheServerOffers) {
    const std::string xoauth2 = text::base64("user=ann@example.test\x01"
                                             "auth=Bearer ya29.token\x01\x01");
    const SMTPEnvelope wide("ann@example.test", {"b\u00f6b@example.test", "cy@example.test"});
    const std::string rest = "C: RCPT TO:<b\u00f6b@example.test>\nS: 250\nC: RCPT TO:<cy@example.test>\nS: 250\n"
                             "C: DATA\nS: 354\n" +
                             body + "S: 250\nC: QUIT\n";
    play({
        {"PLAIN over LOGIN; a greeting of several lines",
         "S: 220-hello\nS: 220 ready\nC~ EHLO [*.*.*.*]\nS: 250-mail\nS: 250-auth=LOGIN\nS: 250 auth login plain\n"
         "C: AUTH PLAIN " +
             plain + "\nS: 235\n" + delivery,
         {}},
        {"LOGIN when there is nothing better, not even a word that looks like it",
         hello +
             "S: 250-AUTH LOGIN PLAIN-CLIENTTOKEN\nS: 250 PIPELINING\nC: AUTH LOGIN\nS: 334 VXNl\nC: YW5u\n"
             "S: 334 UGFz\nC: c2VjcmV0\nS: 235 in\n" +
             delivery,
         {}},
        {"XOAUTH2",
         hello + "S: 250 AUTH PLAIN\nC: AUTH XOAUTH2 " + xoauth2 + "\nS: 235\n" + delivery,
         {},
         Security::tls,
         token},
        {"size and UTF-8 announced",
         hello + "S: 250-mail\nS: 250-SIZE 35882577\nS: 250-AUTH PLAIN LOGIN\nS: 250 SMTPUTF8\nC: AUTH PLAIN " + plain +
             "\nS: 235\nC: MAIL FROM:<ann@example.test> SIZE=23 SMTPUTF8\nS: 250\n" + rest,
         {},
         Security::tls,
         password,
         wide},
        {"UTF-8 not announced, size without a limit",
         hello + "S: 250-mail\nS: 250-AUTH PLAIN\nS: 250 size\nC: AUTH PLAIN " + plain +
             "\nS: 235\nC: MAIL FROM:<ann@example.test> SIZE=23\nS: 250\n" + rest,
         {},
         Security::tls,
         password,
         wide},
        {"upgraded: what was announced in clear is forgotten",
         hello + "S: 250-STARTTLS\nS: 250 AUTH PLAIN SIZE\nC: STARTTLS\nS: 220 go\n" + upgraded,
         {},
         Security::startTLS},
    });
}

TEST(SMTPClient, TellsAtWhichStageItWasRefused) {
    const auto rejected = [](const char* stage) { return SMTPError::rejected(stage, "5.0.0 no, no"); };
    const std::string no = "S: 550-5.0.0 no,\nS: 550 no\n";
    const SMTPEnvelope three("ann@example.test", {"bob@example.test", "cy@example.test", "dan@example.test"});
    play({
        {"greeting", no, rejected("greeting")},
        {"EHLO", hello + no, rejected("EHLO")},
        {"STARTTLS", hello + "S: 250 AUTH PLAIN\nC: STARTTLS\n" + no, rejected("STARTTLS"), Security::startTLS},
        {"no mechanism", hello + "S: 250 AUTH CRAM-MD5\n", SMTPError::authenticationFailed()},
        {"PLAIN", hello + "S: 250 AUTH PLAIN\nC~ AUTH PLAIN *\n" + no, SMTPError::authenticationFailed()},
        {"XOAUTH2", hello + "S: 250 x\nC~ AUTH XOAUTH2 *\nS: 334 e30=\n", SMTPError::authenticationFailed(),
         Security::tls, token},
        {"LOGIN, the name", hello + "S: 250 AUTH LOGIN\nC: AUTH LOGIN\nS: 334\nC: YW5u\nS: 235 so soon\n",
         SMTPError::authenticationFailed()},
        {"sender", fromAnn + no, rejected("sender")},
        {"the second recipient of three", toBobStep + "S: 250 ok\nC: RCPT TO:<cy@example.test>\n" + no,
         rejected("cy@example.test"), Security::tls, password, three},
        {"DATA", toBobStep + "S: 250 ok\nC: DATA\n" + no, rejected("data")},
        {"the message", toTheDot + no, rejected("message")},
        {"another protocol", "S: * OK ready\n", SMTPError::unexpected("* OK ready")},
        {"a short line", "S: 22\n", SMTPError::unexpected("22")},
    });
    EXPECT_EQ(rejected("bob@example.test").sentence(),
              "The outgoing mail server refused the message (bob@example.test): 5.0.0 no, no");
}

TEST(SMTPClient, KnowsWhenAMessageMayHaveArrived) {
    const auto closed = SMTPError::connection(MailConnectionError::closed("localhost"));
    play({
        {"closed at once", "CLOSE", closed},
        {"closed at DATA", toBobStep + "S: 250 ok\nC: DATA\nCLOSE\n", closed},
        {"closed after it", toTheDot + "CLOSE\n", closed.asUncertain()},
        {"closed within the answer", toTheDot + "S> 250 take\nCLOSE\n", closed.asUncertain()},
        {"an answer without sense", toTheDot + "S: what\n", SMTPError::unexpected("what").asUncertain()},
        {"an answer that is no refusal", toTheDot + "S: 251 well\n",
         SMTPError::rejected("message", "well").asUncertain()},
        {"put off", toTheDot + "S: 451 later\n", SMTPError::deferred("message", "later")},
    });
    ScriptedServer leaving(toTheDot + "S: 250 taken\nCLOSE\n", ScriptedServer::Security::tls);
    EXPECT_EQ(send(configOf(leaving, Security::tls)), std::nullopt);
    // More than the buffers on the way take.
    const std::string large(50'000'000, 'x');
    ScriptedServer server(toBobStep + "S: 250 ok\nC: DATA\nS: 354\nC> 1000\nRESET\n", ScriptedServer::Security::tls);
    EXPECT_EQ(send(configOf(server, Security::tls), password, toBob, large),
              SMTPError::connection(MailConnectionError::cannotConnect("localhost")));
}

TEST(SMTPClient, BelievesNothingThatWasSlippedInBeforeTLS) {
    ScriptedServer server(hello + "S: 250 STARTTLS\nC: STARTTLS\nS> 220 go\\r\\n250 AUTH PLAIN\\r\\n235 in\\r\\n2\n" +
                          upgraded);
    EXPECT_EQ(send(configOf(server, Security::startTLS)), std::nullopt);
    EXPECT_EQ(server.verdict(), "");
}

TEST(SMTPClient, ShowsNoCredentialToAServerThatIsNotWhoItShouldBe) {
    const auto failure = SMTPError::connection(MailConnectionError::cannotConnect("localhost"));
    for (const Certificate certificate :
         {Certificate::expired, Certificate::wrongHost, Certificate::selfSigned, Certificate::unknownAuthority}) {
        ScriptedServer atOnce(hello, {ScriptedServer::Security::tls, {}, certificate});
        EXPECT_EQ(send(configOf(atOnce, Security::tls)), failure);
        EXPECT_EQ(atOnce.received(), "");
        ScriptedServer later(hello + "S: 250 AUTH PLAIN\nC: STARTTLS\nS: 220\nTLS\nC~ *\n",
                             {ScriptedServer::Security::plain, {}, certificate});
        EXPECT_EQ(send(configOf(later, Security::startTLS)), failure);
        EXPECT_TRUE(later.received().ends_with("STARTTLS\r\n")) << later.received();
    }
}

TEST(SMTPClient, RefusesWhatWouldBreakACommand) {
    ScriptedServer server("");
    const auto refused = [&](const MailCredential& credential, const SMTPEnvelope& envelope) {
        const auto failure = send(configOf(server, Security::tls), credential, envelope);
        return failure && failure->kind() == SMTPError::Kind::unexpected;
    };
    const std::string nul(1, '\0');
    for (const std::string& bad : {std::string("a\r\nDATA"), std::string("a\n"), std::string("a\r"), "a" + nul}) {
        EXPECT_TRUE(refused(MailCredential::password(bad, "secret"), toBob));
        EXPECT_TRUE(refused(MailCredential::oauth("ann", bad), toBob));
    }
    for (const std::string bad : {"a@b\r\nRCPT TO:<c@d", "a@b> SIZE=1", "<a@b", "a @b", "a@b\t", "", "a\x7F@b"}) {
        EXPECT_TRUE(refused(password, SMTPEnvelope(bad, {"bob@example.test"}))) << bad;
        EXPECT_TRUE(refused(password, SMTPEnvelope("ann@example.test", {"bob@example.test", bad}))) << bad;
    }
    EXPECT_TRUE(refused(password, SMTPEnvelope("ann@example.test", {})));
    EXPECT_EQ(server.connections(), 0);
}

TEST(SMTPClient, ErrorsAreFitToBeShown) {
    const std::string flood(3'000, 'x');
    const std::string answers[] = {"S: 550 secret; AUTH PLAIN " + plain, "S: secret " + plain,
                                   "S> 550 \\x1b[31m\\0\\x07 \\xc2\\x9b \\xe2\\x80\\xae\\xff\\r\\n\n",
                                   "S: 550 " + flood + plain};
    for (const std::string& answer : answers) {
        ScriptedServer server(fromAnn + answer, ScriptedServer::Security::tls);
        const auto failure = send(configOf(server, Security::tls));
        ASSERT_TRUE(failure);
        EXPECT_LT(failure->sentence().size(), 600U);
        EXPECT_EQ(failure->sentence().find("secret"), std::string::npos);
        EXPECT_EQ(failure->sentence().find(plain.substr(0, 4)), std::string::npos);
        for (const char* part : {"\x1b", "\x07", "\xc2\x9b", "\xe2\x80\xae", "\xff"})
            EXPECT_EQ(failure->sentence().find(part), std::string::npos);
    }
}

TEST(SMTPClient, EndsWhateverTheServerSends) {
    const std::string line(2 * SMTPReplyReader::mostBytes, 'x');
    std::string empty, long_;
    for (std::size_t i = 0; i <= SMTPReplyReader::mostLines; ++i) empty += "220-\\r\\n";
    while (long_.size() < 2 * SMTPReplyReader::mostBytes) long_ += "220-" + std::string(500, 'x') + "\\r\\n";
    for (const std::string& flood : {line, empty, long_}) {
        ScriptedServer server("S> " + flood);
        const auto failure = send(configOf(server, Security::startTLS));
        ASSERT_TRUE(failure);
        EXPECT_EQ(failure->kind(), SMTPError::Kind::unexpected);
    }
}

TEST(SMTPClient, WaitsAMinuteForALineAndTenForTheAnswerToAMessage) {
    const auto silence = SMTPError::connection(MailConnectionError::cannotConnect("localhost"));
    const struct {
        std::string transcript, received;
        Duration limit;
        SMTPError failure;
    } cases[] = {
        {"PAUSE", "", smtpReplyTimeout, silence},
        {"S> 220-x\\r\\n22\nPAUSE", "", smtpReplyTimeout, silence},
        {toTheDot + "PAUSE", "\r\n.\r\n", Duration(600'000), silence.asUncertain()},
    };
    for (const auto& test : cases) {
        ManualClock clock;
        const auto security = test.received.empty() ? Security::startTLS : Security::tls;
        ScriptedServer server(test.transcript, serverSecurity(security));
        std::jthread time([&](std::stop_token stop) {
            for (; !stop.stop_requested(); std::this_thread::yield())
                if (server.received().ends_with(test.received) && clock.isDueIn(test.limit)) clock.advance(test.limit);
        });
        EXPECT_EQ(send(configOf(server, security), password, toBob, message, clock), test.failure);
    }
}

TEST(SMTPClient, ACancelledSendStillHearsWhatBecameOfItsMessage) {
    enum class End { cancelled, sent, uncertain };
    const struct {
        std::string transcript;
        bool answers;
        End end;
    } cases[] = {
        {toBobStep + "PAUSE\nS: 250\n", true, End::cancelled},
        {toTheDot + "PAUSE\nS: 250 taken\nC: QUIT\n", true, End::sent},
        {toTheDot + "PAUSE\n", false, End::uncertain},
    };
    for (const auto& test : cases) {
        ManualClock clock;
        ScriptedServer server(test.transcript, ScriptedServer::Security::tls);
        Runtime runtime;
        std::optional<End> end;
        Task task(runtime.executors().main, [&]() -> Async<void> {
            const auto bytes = std::make_shared<const Bytes>(message);
            const ServerConfig config = configOf(server, Security::tls);
            try {
                co_await sendBySMTP(runtime.executors().io, clock, config, password, toBob, bytes);
                end = End::sent;
            } catch (const SMTPError& error) {
                if (error.isUncertain()) end = End::uncertain;
            } catch (...) {
                if (isCancellation(std::current_exception())) end = End::cancelled;
            }
        });
        const std::string last = test.transcript.contains("DATA") ? "\r\n.\r\n" : "bob@example.test>\r\n";
        ASSERT_TRUE(eventually(runtime, [&] { return server.received().ends_with(last); }));
        task.cancel();
        const bool waits = test.end != End::cancelled;
        ASSERT_TRUE(!waits || eventually(runtime, [&] { return clock.isDueIn(smtpLastReplyGrace); }));
        if (test.answers) server.proceed();
        if (!test.answers) clock.advance(smtpLastReplyGrace);
        runtime.run([&] { return task.finished(); });
        EXPECT_EQ(end, test.end);
    }
}

TEST(DotStuffing, DoublesEveryDotAtTheStartOfALine) {
    const struct {
        std::string_view given, stuffed;
    } cases[] = {
        {"", ""},
        {".", ".."},
        {".a\r\n..b\r\nc.\r\n.\r\n", "..a\r\n...b\r\nc.\r\n..\r\n"},
        {"a\n.\nb\r.c", "a\n..\nb\r.c"},
        {"no dots.\r\n at all...\r\n", "no dots.\r\n at all...\r\n"},
    };
    for (const auto& test : cases) EXPECT_EQ(dotStuffed(test.given), test.stuffed);
    Bytes many, expected;
    for (int i = 0; i < 1'000; ++i) {
        many += ".\n";
        expected += "..\n";
    }
    EXPECT_EQ(dotStuffed(many), expected);
}

// --- Against a real server -----------------------------------------------------------------------------------------

class SMTPServer : public WithServers<testing::TestWithParam<Security>> {
  protected:
    void prepare() override { servers.emplace(); }

    MailCredential alice() const {
        return MailCredential::password(servers->value("ALICE_USER"), servers->value("ALICE_PASSWORD"));
    }
    SMTPEnvelope toBob() const { return {servers->value("ALICE_USER"), {servers->value("BOB_USER")}}; }

    std::optional<SMTPError> send(const MailCredential& credential, const SMTPEnvelope& envelope,
                                  std::string_view bytes) const {
        return test::send(servers->smtp(GetParam()), credential, envelope, bytes);
    }

    /// Bob's messages, once there are so many.
    std::vector<Bytes> bobsMessages(std::size_t count) const {
        Runtime runtime;
        SystemClock clock;
        IMAPClient client(makeStrand(runtime.executors().io), clock, servers->imap(Security::tls),
                          MailCredential::password(servers->value("BOB_USER"), servers->value("BOB_PASSWORD")));
        std::vector<Bytes> messages;
        const auto haveArrived = [&] {
            messages.clear();
            runtime.run([&]() -> Async<void> {
                co_await client.connect();
                co_await client.select("INBOX");
                const auto results = co_await client.uidFetch("INBOX", "1:*", "BODY.PEEK[]");
                for (const auto& result : results)
                    if (result.sections.contains("")) messages.push_back(result.sections.at(""));
            });
            return messages.size() >= count;
        };
        EXPECT_TRUE(eventually(haveArrived));
        return messages;
    }

    std::optional<MailServers> servers;
};

TEST_P(SMTPServer, DeliversByteForByte) {
    std::string text = "From: Alice <alice@example.test>\r\nTo: bob@example.test\r\nMessage-ID: <one@example.test>\r\n"
                       "Date: Mon, 23 Nov 2026 10:00:00 +0000\r\nSubject: dots\r\n\r\n"
                       ".\r\n..two\r\n...\r\nin. the.middle\r\n\r\n.\r\nQUIT\r\n.last";
    while (text.size() < 300'000) text += "\r\n.line of many, gr\u00fc\u00dfe";
    ASSERT_EQ(send(alice(), toBob(), text), std::nullopt);
    ASSERT_EQ(send(alice(), toBob(), text + "\r\n"), std::nullopt);
    const auto messages = bobsMessages(2);
    ASSERT_EQ(messages.size(), 2U);
    // The end of the message makes an empty line of a line end that is there already.
    std::multiset<bool> haveEmptyLine;
    for (const Bytes& bytes : messages) {
        const std::size_t start = bytes.find("From: Alice");
        ASSERT_NE(start, Bytes::npos);
        const BytesView received = BytesView(bytes).substr(start);
        haveEmptyLine.insert(received.ends_with("\r\n\r\n"));
        EXPECT_EQ(received.substr(0, text.size()), text);
        EXPECT_EQ(text::trimmed(received.substr(text.size()), "\r\n"), "");
    }
    EXPECT_EQ(haveEmptyLine, (std::multiset<bool>{false, true}));
}

TEST_P(SMTPServer, TellsWhyItRefused) {
    const auto wrong = MailCredential::password(servers->value("ALICE_USER"), "wrong");
    EXPECT_EQ(send(wrong, toBob(), message), SMTPError::authenticationFailed());

    const SMTPEnvelope elsewhere(servers->value("ALICE_USER"), {servers->value("BOB_USER"), "nobody@example.test"});
    const auto refused = send(alice(), elsewhere, message);
    ASSERT_TRUE(refused);
    EXPECT_EQ(refused->kind(), SMTPError::Kind::rejected);
    EXPECT_EQ(refused->stage(), "nobody@example.test");

    // The server takes 25 MiB, and is told the size before it gets the message.
    const std::string large(26'214'401, 'x');
    const auto tooLarge = send(alice(), toBob(), large);
    ASSERT_TRUE(tooLarge);
    EXPECT_EQ(tooLarge->stage(), "sender") << tooLarge->sentence();
}

INSTANTIATE_TEST_SUITE_P(, SMTPServer, testing::Values(Security::tls, Security::startTLS),
                         [](const auto& parameter) { return std::string(rawText(parameter.param)); });

}}
