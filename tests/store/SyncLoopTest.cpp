#include "store/SyncLoop.h"

#include "base/Task.h"
#include "store/StoreRig.h"
#include "support/ScriptedServer.h"
#include "support/ServerTest.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace velmo::test { namespace {

using namespace std::chrono_literals;

/// An account in its loop.
struct Loop {
    enum class Before { nothing, anothersPass };

    Loop(const ServerConfig& server, const std::string& user, const std::string& password,
         Before before = Before::nothing)
        : rig(server, user, password, clock) {
        AccountSync::Hooks hooks;
        hooks.selectedMailbox = [this](const UUID&) { return selected; };
        hooks.chosenMailbox = hooks.selectedMailbox;
        hooks.mailArrived = [this](const MailAccount&, const std::vector<SyncedMessage>& messages) {
            for (const auto& message : messages) arrived.push_back(message.envelope->subject.value_or(""));
        };
        sync = std::make_shared<AccountSync>(rig.environment, rig.status, rig.directoryOfMailboxes, rig.engines,
                                             std::move(hooks));
        if (before == Before::anothersPass)
            other = Task(rig.runtime.executors().main, [this] { return sync->syncAccount(rig.account); });
        task = Task(rig.runtime.executors().main, [weak = std::weak_ptr(sync), this]() -> Async<void> {
            return runSyncLoop(weak, clock, rig.account);
        });
    }

    ~Loop() {
        task.cancel();
        rig.run([this] { return task.finished(); });
        rig.run([this] { return rig.engines.disconnectAll(); });
    }

    /// No pass runs, whose connection has limits of its own, and a wait is due in so long.
    bool waits(Duration duration) {
        return rig.eventually([&] { return status() != SyncStatus::Kind::syncing && clock->isDueIn(duration); });
    }
    SyncStatus::Kind status() { return rig.status.of(rig.account.id).kind; }

    std::shared_ptr<ManualClock> clock = std::make_shared<ManualClock>();
    StoreRig rig;
    std::vector<std::string> arrived;
    std::optional<std::string> selected; ///< the mailbox that the person looks at
    std::shared_ptr<AccountSync> sync;
    Task other, task;
};

TEST(SyncLoop, SpacesFailingPassesAndTellsWhy) {
    int port = 0;
    {
        const ScriptedServer closed("CLOSE");
        port = closed.port();
    }
    Loop loop(ServerConfig("127.0.0.1", port, ServerConfig::Security::tls), "alice", "secret");
    for (const auto wait : {30s, 60s, 120s, 240s, 480s, 900s, 900s, 900s}) {
        ASSERT_TRUE(loop.waits(wait)) << wait.count();
        EXPECT_EQ(loop.rig.status.of(loop.rig.account.id),
                  SyncStatus::failed("Couldn't connect to 127.0.0.1. Check the server and your connection."));
        EXPECT_TRUE(loop.rig.status.lastChecked->empty());
        loop.clock->advance(wait);
    }
}

TEST(SyncLoop, ListensUntilThePassIsDueAndHalfAMinuteAtLeast) {
    for (const auto& [since, time] : {std::pair(0s, 600s), {569s, 31s}, {570s, 30s}, {590s, 30s}, {3'000s, 30s}})
        EXPECT_EQ(listeningTime(since), time) << since.count();
    for (const auto& [failures, time] : {std::pair(0, 30s), {1, 30s}, {5, 480s}, {6, 900s}, {1'000'000, 900s}})
        EXPECT_EQ(backOff(failures), time) << failures;
}

TEST(SyncLoop, PassesAgainEveryTenMinutesWithoutAnInbox) {
    ScriptedServer server(R"(
        S: * OK [CAPABILITY IMAP4rev1 AUTH=PLAIN SASL-IR IDLE] hello
        C~ b1 AUTHENTICATE PLAIN *
        S: b1 OK [CAPABILITY IMAP4rev1 IDLE] in
        C: b2 CAPABILITY
        S: * CAPABILITY IMAP4rev1 IDLE
        S: b2 OK
        C: b3 LIST "" "*"
        S: * LIST (\HasNoChildren \Noselect) "/" "Folder"
        S: b3 OK
        C: b4 LIST "" "*"
        S: b4 OK
        C: b5 LOGOUT
        S: b5 OK)",
                          ScriptedServer::Options(ScriptedServer::Security::tls));
    Loop loop(ServerConfig("localhost", server.port(), ServerConfig::Security::tls), "alice", "secret");
    ASSERT_TRUE(loop.waits(600s)) << server.received() << loop.rig.status.of(loop.rig.account.id).text;
    EXPECT_EQ(loop.status(), SyncStatus::Kind::idle);
    EXPECT_EQ(loop.rig.status.lastChecked->size(), 1U);
    loop.clock->advance(600s);
    ASSERT_TRUE(loop.rig.eventually([&] { return server.received().contains("b4 LIST"); }));
    ASSERT_TRUE(loop.waits(600s));
}

TEST(SyncLoop, APassTakesWhatIsLookedAtAfterTheInboxAndLeavesOutWhatHoldsEverything) {
    ScriptedServer server(R"(
        S: * OK [CAPABILITY IMAP4rev1 AUTH=PLAIN SASL-IR] hello
        C~ b1 AUTHENTICATE PLAIN *
        S: b1 OK [CAPABILITY IMAP4rev1] in
        C: b2 CAPABILITY
        S: * CAPABILITY IMAP4rev1
        S: b2 OK
        C: b3 LIST "" "*"
        S: * LIST (\HasNoChildren) "/" "Work"
        S: * LIST (\HasNoChildren \Sent) "/" "Sent"
        S: * LIST (\HasNoChildren \All) "/" "Everything"
        S: * LIST (\HasNoChildren \Noselect) "/" "Folder"
        S: * LIST (\HasNoChildren \Trash) "/" "Trash"
        S: * LIST (\HasNoChildren) "/" "INBOX"
        S: b3 OK
        C: b4 STATUS "Work" (MESSAGES UNSEEN UIDNEXT)
        S: b4 OK
        C: b5 STATUS "Sent" (MESSAGES UNSEEN UIDNEXT)
        S: b5 OK
        C: b6 STATUS "Everything" (MESSAGES UNSEEN UIDNEXT)
        S: b6 OK
        C: b7 STATUS "Trash" (MESSAGES UNSEEN UIDNEXT)
        S: b7 OK
        C: b8 STATUS "INBOX" (MESSAGES UNSEEN UIDNEXT)
        S: b8 OK
        C: b9 SELECT "INBOX"
        S: * 0 EXISTS
        S: b9 OK
        C: b10 SELECT "Trash"
        S: * 0 EXISTS
        S: b10 OK
        C: b11 SELECT "Sent"
        S: * 0 EXISTS
        S: b11 OK
        C: b12 SELECT "Work"
        S: * 0 EXISTS
        S: b12 OK
        C: b13 LOGOUT
        S: b13 OK)",
                          ScriptedServer::Options(ScriptedServer::Security::tls));
    Loop loop(ServerConfig("localhost", server.port(), ServerConfig::Security::tls), "alice", "secret");
    loop.selected = "Trash";
    EXPECT_TRUE(loop.rig.eventually([&] { return server.received().contains("b12 SELECT"); })) << server.received();
}

class RealLoop : public WithServers<> {
  protected:
    void prepare() override {
        servers.emplace();
        servers->fill(5);
        loop.emplace(servers->imap(ServerConfig::Security::tls), servers->value("ALICE_USER"),
                     servers->value("ALICE_PASSWORD"));
    }

    std::optional<MailServers> servers;
    std::optional<Loop> loop;
};

TEST_F(RealLoop, GathersABurstAfterTheServersWordAndAnnouncesItOnce) {
    ASSERT_TRUE(loop->waits(600s));
    EXPECT_EQ(loop->rig.held("INBOX").size(), 5U);
    EXPECT_TRUE(loop->arrived.empty());
    servers->deliver("Subject: one\r\n\r\nfirst\r\n");
    ASSERT_TRUE(loop->waits(burstWait));
    servers->deliver("Subject: two\r\n\r\nsecond\r\n");
    EXPECT_EQ(loop->rig.held("INBOX").size(), 5U);
    loop->clock->advance(burstWait);
    ASSERT_TRUE(loop->rig.eventually([&] { return loop->rig.held("INBOX").size() == 7; }));
    ASSERT_TRUE(loop->rig.eventually([&] { return loop->arrived.size() == 2; }));
    EXPECT_THAT(loop->arrived, testing::UnorderedElementsAre("one", "two"));
}

TEST_F(RealLoop, LooksAtTheMailboxInViewAsWellWhenTheServerTellsOfTheInbox) {
    servers->fill("Archive", 2, 2);
    ASSERT_TRUE(loop->waits(600s));
    loop->selected = "Archive";
    servers->fill("Archive", 1, 3);
    servers->deliver("Subject: one\r\n\r\nfirst\r\n");
    ASSERT_TRUE(loop->waits(burstWait));
    loop->clock->advance(burstWait);
    EXPECT_TRUE(loop->rig.eventually([&] { return loop->rig.held("Archive").size() == 3; }));
}

TEST_F(RealLoop, DoesItsOwnPassAfterOneThatSomebodyElseBegan) {
    loop.emplace(servers->imap(ServerConfig::Security::tls), servers->value("ALICE_USER"),
                 servers->value("ALICE_PASSWORD"), Loop::Before::anothersPass);
    ASSERT_TRUE(loop->waits(600s));
    servers->deliver("Subject: one\r\n\r\nfirst\r\n");
    EXPECT_TRUE(loop->waits(burstWait)) << "it listens";
}

TEST_F(RealLoop, FindsALostServerAgainAfterTheBackOff) {
    ASSERT_TRUE(loop->waits(600s));
    servers->restart(MailServers::RawLog::no);
    ASSERT_TRUE(loop->waits(30s));
    EXPECT_EQ(loop->status(), SyncStatus::Kind::idle);
}

TEST_F(RealLoop, AQuietWaitEndsInACompletePass) {
    ASSERT_TRUE(loop->waits(600s));
    const Date first = loop->rig.status.lastChecked->at(loop->rig.account.id);
    loop->clock->advance(600s);
    ASSERT_TRUE(loop->rig.eventually([&] { return loop->rig.status.lastChecked->at(loop->rig.account.id) > first; }));
    ASSERT_TRUE(loop->waits(600s));
}

}}
