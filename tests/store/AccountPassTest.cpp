#include "store/AccountPass.h"

#include "base/Runtime.h"
#include "base/Task.h"
#include "protocols/IMAPClient.h"
#include "records/ModelContext.h"
#include "support/ServerTest.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace velmo { namespace {

using namespace std::chrono_literals;
using test::MailServers;
using testing::HasSubstr;
using testing::Not;

/// What must, and what must not, stand in the lines that a client sends to a server which lacks a capability.
struct Lack {
    const char* capability;
    std::vector<const char*> sent;
    std::vector<const char*> notSent;
};

// Otherwise a failing test names its parameter by the bytes.
void PrintTo(const Lack& lack, std::ostream* out) {
    *out << (*lack.capability ? lack.capability : "nothing");
}

const Lack lacks[]{
    {"",
     {"RETURN (SPECIAL-USE)", "SELECT \"INBOX\" (CONDSTORE)", "CHANGEDSINCE", "UID MOVE", "UID EXPUNGE"},
     {"UID COPY"}},
    {"CONDSTORE", {"UID FETCH 1:30 (UID FLAGS)"}, {"CONDSTORE", "CHANGEDSINCE"}},
    {"ENABLE", {"(CONDSTORE)", "CHANGEDSINCE"}, {"ENABLE"}},
    {"SPECIAL-USE", {"LIST \"\" \"*\""}, {"RETURN"}},
    {"LIST-EXTENDED", {"LIST \"\" \"*\""}, {"RETURN"}},
    {"UIDPLUS", {" EXPUNGE"}, {"UID EXPUNGE"}},
    {"MOVE", {"UID COPY", "UID EXPUNGE"}, {"UID MOVE"}},
    {"IDLE", {}, {"IDLE"}},
    {"SASL-IR", {"UID SEARCH"}, {}},
    {"all", {"UID COPY", " EXPUNGE", "LIST \"\" \"*\""}, {"UID EXPUNGE", "UID MOVE", "CONDSTORE", "IDLE", "ENABLE"}},
};

/// A mirror of Alice's account, and another client of hers.
class RealServer : public test::WithServers<testing::TestWithParam<std::tuple<Lack, ServerConfig::Security>>> {
  protected:
    void prepare() override {
        servers_.emplace(std::get<Lack>(GetParam()).capability, MailServers::RawLog::yes);
        const auto server = servers_->imap(std::get<ServerConfig::Security>(GetParam()));
        const auto credential =
            MailCredential::password(servers_->value("ALICE_USER"), servers_->value("ALICE_PASSWORD"));
        auto ask = [credential]() -> Async<MailCredential> { co_return credential; };
        engine_ = std::make_unique<SyncEngine>(account_, server, std::move(ask), *clock_, runtime_.executors().io);
        other_ = std::make_unique<IMAPClient>(makeStrand(runtime_.executors().io), *clock_, server, credential);
        container_ = ModelContainer::open(directory_ / "Mail.sqlite", runtime_.executors().main);
        writer_ = std::make_unique<SyncWriter>(container_, MessageFiles(directory_ / "Messages"), clock_,
                                               runtime_.executors().background);
        context_ = container_->makeContext();
    }

    Async<PassResult> pass() { return passOver(*engine_, *writer_, account_, LabelNewMail::yes, {}); }

    std::vector<MessageRecord> held(const std::string& path) {
        std::vector<MailboxKey> keys{MailboxKey{account_, path}};
        const MessageListQuery query(std::move(keys), 1000);
        return context_->messages.page(query);
    }

    IMAPSelectedState inboxState() {
        const auto record = *context_->mailboxes.find(MailboxKey{account_, "INBOX"});
        IMAPSelectedState state;
        state.exists = record.totalCount;
        state.uidValidity = static_cast<std::uint32_t>(record.uidValidity);
        state.uidNext = static_cast<std::uint32_t>(record.uidNext);
        return state;
    }

    std::optional<MessageRecord> message(std::uint32_t uid) {
        return context_->messages.find(MailboxKey{account_, "INBOX"}, uid);
    }

    /// Flags 3, takes the flag of 4, moves 5, deletes 6 and appends one.
    Async<void> changeAsOther() {
        const std::vector<std::string> flagged{"\\Flagged"}, seen{"\\Seen"};
        co_await other_->connect();
        co_await other_->store("INBOX", "3", IMAPClient::FlagChange::add, flagged);
        co_await other_->store("INBOX", "4", IMAPClient::FlagChange::remove, seen);
        co_await other_->moveMessages("INBOX", "5", "Archive");
        co_await other_->deleteMessages("INBOX", "6");
        co_await other_->createMailbox("Archive");
        co_await other_->append("INBOX", flagged, "Subject: late\r\n\r\nlate\r\n");
    }

    Runtime runtime_;
    std::optional<MailServers> servers_;
    test::TemporaryDirectory directory_;
    std::shared_ptr<Clock> clock_ = std::make_shared<SystemClock>();
    UUID account_ = UUID::random();
    std::unique_ptr<SyncEngine> engine_;
    std::unique_ptr<IMAPClient> other_;
    std::shared_ptr<ModelContainer> container_;
    std::unique_ptr<SyncWriter> writer_;
    std::unique_ptr<ModelContext> context_;
};

TEST_P(RealServer, IsMirroredWithAndWithoutEachCapability) {
    servers_->fill(30);
    runtime_.run([&]() -> Async<void> {
        co_await pass();
        EXPECT_EQ(held("INBOX").size(), 30U);
        for (const auto& mailbox : context_->mailboxes.of(account_)) {
            EXPECT_NE(mailbox.role(), MailboxRole::other) << mailbox.path;
        }

        co_await changeAsOther();
        const PassResult second = co_await pass();
        EXPECT_EQ(second.newMessages, 2U);
        EXPECT_EQ(second.vanished, 2U);
        EXPECT_EQ(held("INBOX").size(), 29U);
        EXPECT_EQ(held("Archive").size(), 1U);
        EXPECT_FALSE(message(5) || message(6));
        EXPECT_TRUE(message(3)->isFlagged);
        EXPECT_FALSE(message(4)->isSeen);
        EXPECT_EQ(message(31)->subject, "late");
        EXPECT_TRUE(message(31)->isFlagged);

        const auto third = co_await pass();
        EXPECT_EQ(third.newMessages + third.vanished, 0U);
        co_await engine_->disconnect();
        co_await other_->close();
    });
    std::string sent;
    for (const auto& session : servers_->clientSessions()) sent += session;
    const Lack lack = std::get<Lack>(GetParam());
    for (const char* words : lack.sent) EXPECT_THAT(sent, HasSubstr(words));
    for (const char* words : lack.notSent) EXPECT_THAT(sent, Not(HasSubstr(words)));
}

INSTANTIATE_TEST_SUITE_P(Capabilities, RealServer,
                         testing::Combine(testing::ValuesIn(lacks), testing::Values(ServerConfig::Security::tls,
                                                                                    ServerConfig::Security::startTLS)));

using StrictServer = RealServer;

TEST_P(StrictServer, WithoutPlainSignInRefusesInWordsThatHoldNoSecret) {
    // This server takes LOGIN away together with AUTH=PLAIN; the client tries it, and tells what the server says.
    std::string sentence;
    runtime_.run([&]() -> Async<void> {
        try {
            co_await pass();
        } catch (const IMAPError& error) {
            EXPECT_EQ(error.kind(), IMAPError::Kind::authenticationFailed);
            sentence = error.sentence();
        }
        co_await engine_->disconnect();
    });
    EXPECT_THAT(sentence, HasSubstr("didn't accept your sign-in"));
    EXPECT_THAT(sentence, Not(HasSubstr(servers_->value("ALICE_PASSWORD"))));
    EXPECT_TRUE(held("INBOX").empty());
}

INSTANTIATE_TEST_SUITE_P(SignIn, StrictServer,
                         testing::Combine(testing::Values(Lack{"AUTH=PLAIN", {}, {}}),
                                          testing::Values(ServerConfig::Security::tls,
                                                          ServerConfig::Security::startTLS)));

using QuietServer = RealServer;

TEST_P(QuietServer, TellsOfNewMailThroughIdleOrIsPolled) {
    runtime_.run([&]() -> Async<void> {
        co_await pass();
        co_await other_->connect();
        const bool hasIdle = *std::get<Lack>(GetParam()).capability == '\0';
        Task late;
        if (hasIdle) {
            auto deliver = [&]() -> Async<void> {
                co_await clock_->wait(300ms);
                co_await other_->append("INBOX", {}, "Subject: woken\r\n\r\n\r\n");
            };
            late = Task(runtime_.executors().io, deliver);
        }
        const bool changed =
            co_await engine_->waitForChanges("INBOX", inboxState(), hasIdle ? Duration{20s} : Duration{50ms});
        EXPECT_TRUE(changed);
        const PassResult result = co_await pass();
        EXPECT_EQ(result.newMessages, hasIdle ? 1U : 0U);
        co_await engine_->disconnect();
        co_await other_->close();
    });
}

INSTANTIATE_TEST_SUITE_P(Idle, QuietServer,
                         testing::Combine(testing::Values(lacks[0], lacks[7]),
                                          testing::Values(ServerConfig::Security::tls)));

}}
