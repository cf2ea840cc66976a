// Opening a session, and what can go wrong with it.

#include "protocols/IMAPClientFixture.h"

#include "base/Text.h"

namespace velmo::test { namespace {

using Kind = IMAPError::Kind;

const MailCredential awkward = MailCredential::password("an\"n", "se\\cr\"et");
const MailCredential token = MailCredential::oauth("ann@example.test", "ya29.token");
const std::string xoauth2 = text::base64("user=ann@example.test\x01"
                                         "auth=Bearer ya29.token\x01\x01");

struct Opening {
    const char* name;
    ServerConfig::Security security;
    MailCredential credential;
    std::string transcript;
    std::optional<IMAPError> failure;
};

std::vector<Opening> openings() {
    const auto tls = ServerConfig::Security::tls;
    const auto startTLS = ServerConfig::Security::startTLS;
    const MailCredential password = MailCredential::password("ann", "secret");
    return {
        {"greeting tells capabilities; ENABLE fails and does not matter",
         tls,
         password,
         signInScript("enable CONDSTORE") + "C: b3 ENABLE CONDSTORE\nS: b3 BAD no\n",
         {}},
        {"asks when the greeting tells nothing; PLAIN waits for its turn",
         tls,
         password,
         R"(
            S: * PREAUTH welcome back
            C: b1 CAPABILITY
            S: * CAPABILITY IMAP4rev1 AUTH=PLAIN
            S: b1 OK
            C: b2 AUTHENTICATE PLAIN
            S: +
            C: AGFubgBzZWNyZXQ=
            S: b2 OK
            C: b3 CAPABILITY
            S: b3 OK)",
         {}},
        {"LOGIN escapes quotes and backslashes",
         tls,
         awkward,
         R"(
            S: * OK [CAPABILITY IMAP4rev1] hi
            C: b1 LOGIN "an\"n" "se\\cr\"et"
            S: b1 OK
            C: b2 CAPABILITY
            S: b2 OK)",
         {}},
        {"XOAUTH2 challenge is answered by an empty line", tls, token,
         "S: * OK [CAPABILITY IMAP4rev1 AUTH=XOAUTH2] hi\nC: b1 AUTHENTICATE XOAUTH2 " + xoauth2 + R"(
            S: + eyJzdGF0dXMiOiI0MDAifQ==
            C: 
            S: b1 NO [AUTHENTICATIONFAILED] expired)",
         IMAPError::authenticationFailed("expired")},
        {"capabilities told in clear are dropped",
         startTLS,
         password,
         R"(
            S: * OK [CAPABILITY IMAP4rev1 STARTTLS AUTH=PLAIN SASL-IR IDLE] hi
            C: b1 STARTTLS
            S: b1 OK go
            TLS
            C: b2 CAPABILITY
            S: * CAPABILITY IMAP4rev1 AUTH=PLAIN SASL-IR
            S: b2 OK
            C: b3 AUTHENTICATE PLAIN AGFubgBzZWNyZXQ=
            S: b3 OK
            C: b4 CAPABILITY
            S: * CAPABILITY IMAP4rev1 IDLE
            S: b4 OK)",
         {}},
        {"STARTTLS refused is no reason to go on in clear", startTLS, password, R"(
            S: * OK hi
            C: b1 STARTTLS
            S: b1 NO not today)",
         IMAPError::commandFailed("STARTTLS", "not today")},
        {"BYE greeting", tls, password, "S: * BYE busy\n", IMAPError::unexpected("greeting")},
        {"a greeting that is none", tls, password, "S: * 3 EXISTS\n", IMAPError::unexpected("greeting")},
        {"another protocol", tls, password, "S: 220 mail.example ESMTP\n",
         IMAPError::unexpected("220 mail.example ESMTP")},
        {"BYE after the sign-in", tls, password, R"(
            S: * OK [CAPABILITY AUTH=PLAIN SASL-IR] hi
            C: b1 AUTHENTICATE PLAIN AGFubgBzZWNyZXQ=
            S: * BYE too many
            CLOSE)",
         IMAPError::unexpected("server closed the connection: too many")},
        {"the server leaves", tls, password, "S: * OK hi\nC: b1 CAPABILITY\nCLOSE\n",
         IMAPError::connection(MailConnectionError::closed("localhost"))},
    };
}

TEST(IMAPClientSession, OpensAsAnnouncedOrFails) {
    SystemClock clock;
    for (const Opening& opening : openings()) {
        SCOPED_TRACE(opening.name);
        forEachCut([&](Cut cut) {
            const bool isTLS = opening.security == ServerConfig::Security::tls;
            ScriptedServer server(opening.transcript,
                                  {isTLS ? ScriptedServer::Security::tls : ScriptedServer::Security::plain, cut});
            IMAPClientRig rig(server, clock, opening.security, opening.credential);
            const auto failure = rig.failure([&] { return rig.client->connect(); });
            EXPECT_EQ(failure, opening.failure) << (failure ? failure->what() : "");
            EXPECT_EQ(rig.client->isConnected(), !opening.failure);
            EXPECT_EQ(server.verdict(), "");
        });
    }
}

TEST(IMAPClientSession, GivesUpAServerThatSendsWithoutEnd) {
    SystemClock clock;
    const auto tooMuch = IMAPError::connection(MailConnectionError::tooMuch("localhost"));
    const std::string line(100'000, 'x');
    std::string lines;
    for (int i = 0; i <= 1'000; ++i) lines += "S: * OK still here\n";
    const std::string asked = "S: * OK hi\nC: b1 CAPABILITY\n";
    const std::string transcripts[]{"S> * OK " + line + "\nPAUSE\n", "S: * 1 X {9000000000000000000}\nPAUSE\n",
                                    asked + lines + "PAUSE\n"};
    for (const auto& transcript : transcripts) {
        ScriptedServer server(transcript, ScriptedServer::Security::tls);
        IMAPClientRig rig(server, clock, ServerConfig::Security::tls, MailCredential::password("ann", "secret"));
        EXPECT_EQ(rig.failure([&] { return rig.client->connect(); }), tooMuch) << transcript.substr(0, 60);
        EXPECT_FALSE(rig.client->isConnected());
    }
}

TEST(IMAPClientSession, DropsWordsThatWereInjectedBeforeTLS) {
    SystemClock clock;
    ScriptedServer server(R"(
        S: * OK [CAPABILITY IMAP4rev1] hi
        C: b1 STARTTLS
        S> b1 OK go\r\n* CAPABILITY IMAP4rev1 EVIL\r\nb2 OK\r\n* 1 EX
        TLS
        C: b2 CAPABILITY
        S: b2 NO I can't tell
        )");
    IMAPClientRig rig(server, clock, ServerConfig::Security::startTLS);
    EXPECT_EQ(rig.failure([&] { return rig.client->connect(); }),
              IMAPError::commandFailed("CAPABILITY", "I can't tell"));
    EXPECT_FALSE(rig.client->has("EVIL"));
    EXPECT_EQ(server.verdict(), "");
}

TEST(IMAPClientSession, ShowsNoCredentialToAServerThatIsNotWhoItShouldBe) {
    SystemClock clock;
    for (const Certificate certificate :
         {Certificate::expired, Certificate::wrongHost, Certificate::selfSigned, Certificate::unknownAuthority}) {
        for (const auto security : {ServerConfig::Security::tls, ServerConfig::Security::startTLS}) {
            const bool isTLS = security == ServerConfig::Security::tls;
            ScriptedServer server(
                isTLS ? "S: * OK hi\n" : "S: * OK hi\nC: b1 STARTTLS\nS: b1 OK\nTLS\nC~ *\n",
                {isTLS ? ScriptedServer::Security::tls : ScriptedServer::Security::plain, {}, certificate});
            IMAPClientRig rig(server, clock, security);
            EXPECT_EQ(rig.failure([&] { return rig.client->connect(); }),
                      IMAPError::connection(MailConnectionError::cannotConnect("localhost")));
            EXPECT_EQ(server.received(), isTLS ? "" : "b1 STARTTLS\r\n");
        }
    }
}

TEST(IMAPClientSession, ErrorsNeverHoldTheSecret) {
    SystemClock clock;
    const std::string plain = text::base64(std::string("\0ann\0secret", 11));
    const std::string padding(115, 'x');
    const std::string answers[] = {
        "S: b1 NO no: b1 AUTHENTICATE PLAIN " + plain,
        "S: b1 NO [X secret] password secret is wrong",
        "S: * BYE secret " + plain,
        "S: b1 MAYBE " + padding.substr(12) + plain,
        "S: b1 MAYBE " + text::base64("secret"),
    };
    for (const std::string& answer : answers) {
        SCOPED_TRACE(answer);
        ScriptedServer server("S: * OK [CAPABILITY AUTH=PLAIN SASL-IR] hi\nC: b1 AUTHENTICATE PLAIN " + plain + "\n" +
                                  answer + "\n",
                              tlsServer());
        IMAPClientRig rig(server, clock);
        const auto failure = rig.failure([&] { return rig.client->connect(); });
        ASSERT_TRUE(failure);
        const std::string told = failure->sentence() + failure->text() + failure->command() + failure->code();
        for (const std::string& part : {std::string("secret"), plain, plain.substr(0, 4), text::base64("secret")})
            EXPECT_EQ(told.find(part), std::string::npos) << told;
    }
}

TEST(IMAPClientSession, RefusesArgumentsThatWouldBreakALine) {
    SystemClock clock;
    ScriptedServer server(signInScript("MOVE"), tlsServer());
    IMAPClientRig rig(server, clock);
    IMAPClient& client = *rig.client;
    ASSERT_FALSE(rig.failure([&] { return client.connect(); }));
    using Operation = std::function<Async<void>()>;
    const std::string evil = "x\r\nb9 DELETE INBOX";
    const Operation operations[] = {
        [&]() -> Async<void> { co_await client.select(evil); },
        [&]() -> Async<void> { co_await client.search("INBOX", "TEXT \"" + evil + "\""); },
        [&]() -> Async<void> { co_await client.uidFetch("INBOX", evil, "UID"); },
        [&]() -> Async<void> { co_await client.fetch("INBOX", "1", evil); },
        [&]() -> Async<void> {
            std::vector<std::string> flags{evil};
            co_await client.store("INBOX", "1", IMAPClient::FlagChange::add, std::move(flags));
        },
        [&]() -> Async<void> { co_await client.moveMessages("INBOX", "1", evil); },
        [&]() -> Async<void> { co_await client.createMailbox(std::string("a\0b", 3)); },
        [&]() -> Async<void> { co_await client.idle(evil, Duration(60'000)); },
        [&]() -> Async<void> { co_await client.execute("NOOP\n"); },
    };
    const std::string before = server.received();
    for (const Operation& operation : operations)
        EXPECT_EQ(rig.failure(operation), IMAPError::unexpected("a line break in a command"));
    EXPECT_EQ(server.received(), before);
    for (const auto& credential : {MailCredential::password("a\r\nb", "c"), MailCredential::oauth("a", "b\nc")}) {
        IMAPClientRig other(server, clock, ServerConfig::Security::tls, credential);
        EXPECT_EQ(other.failure([&] { return other.client->connect(); }),
                  IMAPError::unexpected("a line break in a command"));
    }
    EXPECT_EQ(server.connections(), 1);
}

TEST(IMAPClientSession, FailuresCloseTheSessionOnlyWhereTheyMust) {
    SystemClock clock;
    forEachCut([&](Cut cut) {
        ScriptedServer server(signInScript() + R"(
            C: b3 SELECT "INBOX"
            S: b3 OK
            C: b4 NOOP
            S: b4 BAD what
            C: b5 NOOP
            S: * 1 FETCH (FLAGS (
            S: b5 OK
            C: b6 NOOP
            S: + go on
            C: b7 NOOP
            S: b6 OK
            S: b7 OK
            C: b8 LOGOUT
            S: * BYE bye
            S: b8 OK
            C: b9 NOOP
            S: * BYE enough
            CLOSE
            ---
        )" + text::replacedAll(text::replacedAll(signInScript(), "b2", "b11"), "b1 ", "b10 "),
                              tlsServer(cut));
        IMAPClientRig rig(server, clock);
        IMAPClient& client = *rig.client;
        const auto run = [&](std::string command) {
            return rig.failure([&]() -> Async<void> { co_await client.execute(command); });
        };
        EXPECT_EQ(run("NOOP"), IMAPError::disconnected());
        EXPECT_FALSE(rig.failure([&] { return client.connect(); }));
        EXPECT_FALSE(rig.failure([&]() -> Async<void> { co_await client.select("INBOX"); }));
        EXPECT_EQ(run("NOOP"), IMAPError::commandFailed("NOOP", "what"));
        EXPECT_EQ(run("NOOP"), IMAPError::unexpected("* 1 FETCH (FLAGS ("));
        EXPECT_EQ(run("NOOP"), IMAPError::unexpected("continuation for b6"));
        EXPECT_FALSE(run("NOOP"));
        EXPECT_FALSE(run("LOGOUT"));
        EXPECT_EQ(client.selectedPath(), "INBOX");
        EXPECT_EQ(run("NOOP"), IMAPError::unexpected("server closed the connection: enough"));
        EXPECT_FALSE(client.selectedPath());
        EXPECT_EQ(run("NOOP"), IMAPError::disconnected());
        EXPECT_FALSE(rig.failure([&] { return client.connect(); }));
        EXPECT_EQ(server.verdict(), "");
    });
}

TEST(IMAPClientSession, ACancelledCommandClosesTheSession) {
    SystemClock clock;
    ScriptedServer server(signInScript() + "C: b3 NOOP\n", tlsServer());
    IMAPClientRig rig(server, clock);
    ASSERT_FALSE(rig.failure([&] { return rig.client->connect(); }));
    Task task(rig.runtime.executors().background, [client = rig.client]() -> Async<void> {
        co_await client->locked([&client]() -> Async<void> { co_await client->execute("NOOP"); });
    });
    ASSERT_EQ(server.verdict(), "");
    task.cancel();
    rig.runtime.run([&] { return task.finished(); });
    EXPECT_FALSE(rig.client->isConnected());
    EXPECT_EQ(rig.failure([&]() -> Async<void> { co_await rig.client->execute("NOOP"); }), IMAPError::disconnected());
}

TEST(IMAPClientSession, LockedSectionsRunOneByOneInTheOrderOfArrival) {
    SystemClock clock;
    ScriptedServer server("");
    IMAPClientRig rig(server, clock);
    const Executors& executors = rig.runtime.executors();
    std::string order;
    ManualClock gate;
    const auto section = [&](char name) {
        return [&, name, client = rig.client]() -> Async<void> {
            co_await client->locked([&, name]() -> Async<void> {
                order += name;
                co_await gate.wait(Duration(1));
                order += static_cast<char>(name - 32);
                if (name == 'b') throw std::runtime_error("section failed");
            });
        };
    };
    const Executor strand = makeStrand(executors.io);
    std::vector<Task> tasks;
    for (const char name : {'a', 'b', 'c', 'd'}) {
        tasks.emplace_back(strand, section(name));
        // Each is in the queue before the next comes.
        rig.runtime.run([&]() -> Async<void> { co_await rig.client->close(); });
        ASSERT_TRUE(eventually([&] { return gate.waiting() == 1; }));
    }
    tasks[2].cancel();
    rig.runtime.run([&] { return tasks[2].finished(); });
    for (const std::size_t i : {0U, 1U, 3U}) {
        ASSERT_TRUE(eventually([&] { return gate.waiting() == 1; }));
        gate.advance(Duration(1));
        try {
            rig.runtime.run([&] { return tasks[i].finished(); });
        } catch (const std::runtime_error&) {
            EXPECT_EQ(i, 1U);
        }
    }
    EXPECT_EQ(order, "aAbBdD");
}

}}
