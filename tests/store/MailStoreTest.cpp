// The store as a whole: what starts, what ends, and what an account that goes leaves behind.

#include "store/MailStore.h"

#include "base/ManualClock.h"
#include "base/Runtime.h"
#include "platform/Keychain.h"
#include "support/Eventually.h"
#include "support/FaultProxy.h"
#include "support/ServerTest.h"
#include "support/TemporaryDirectory.h"

#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace velmo::test { namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using testing::HasSubstr;

/// Counts what it is told.
struct Follower final : MailService {
    void start() override { ++starts; }
    void checked(const MailAccount&, Check) override { ++checks; }
    void accountRemoved(const UUID&) override { ++removals; }
    int starts = 0, checks = 0, removals = 0;
};

class MailStoreTest : public WithServers<> {
  protected:
    void prepare() override {
        servers_.emplace("", MailServers::RawLog::yes);
        servers_->fill(3);
        auto container = ModelContainer::open(directory_ / "Mail.sqlite", runtime_.executors().main);
        MailStoreParts parts(runtime_.executors(), clock_, settings_, accounts_, std::move(container),
                             MessageFiles(directory_ / "Messages"));
        store_.emplace(std::move(parts));
        auto follower = std::make_unique<Follower>();
        follower_ = follower.get();
        store_->add(std::move(follower));
    }

    void TearDown() override {
        if (store_) run([this] { return store_->stop(); });
    }

    template <class F>
    void run(F operation) {
        runtime_.run(std::move(operation));
    }

    bool eventually(const std::function<bool()>& condition) { return test::eventually(runtime_, condition); }

    /// Alice's account, at the server itself or at something in front of it.
    MailAccount add(const ServerConfig& server) {
        MailAccount account;
        account.id = UUID::random();
        account.email = "alice@example.test";
        account.username = servers_->value("ALICE_USER");
        account.incoming = server;
        run([&]() -> Async<void> { co_await accounts_.add(account, servers_->value("ALICE_PASSWORD")); });
        return account;
    }

    std::size_t sessionsWith(const std::string& word) {
        const auto sessions = servers_->clientSessions();
        return static_cast<std::size_t>(
            std::ranges::count_if(sessions, [&](const auto& session) { return session.contains(word); }));
    }

    /// The loop of the account listens for new mail, and nothing else is under way.
    bool isQuiet(const UUID& account) {
        return clock_->isDueIn(600s) && !store_->prefetch().isRunning(account) &&
               store_->status().of(account).kind == SyncStatus::Kind::idle;
    }

    Runtime runtime_;
    TemporaryDirectory directory_;
    MemorySettings settings_;
    MemoryKeychain keychain_;
    std::shared_ptr<ManualClock> clock_ = std::make_shared<ManualClock>();
    AccountStore accounts_{runtime_.executors(), *clock_, settings_, keychain_};
    std::optional<MailServers> servers_;
    std::optional<MailStore> store_;
    Follower* follower_ = nullptr;
};

TEST_F(MailStoreTest, StartsEachAccountOnceAndCarriesOutAtTheEndWhatCouldBeUndone) {
    run([this] { return store_->start(); });
    EXPECT_EQ(*store_->selection().unified, std::nullopt);
    const auto account = add(servers_->imap(ServerConfig::Security::tls));
    run([this] { return store_->start(); });
    run([this] { return store_->start(); });
    ASSERT_TRUE(eventually([&] { return isQuiet(account.id); }));
    EXPECT_EQ(sessionsWith("IDLE"), 1U);
    EXPECT_EQ(follower_->starts, 3);
    EXPECT_EQ(follower_->checks, 1);
    // A second loop would begin with a pass.
    run([this] { return store_->start(); });
    ASSERT_TRUE(eventually([&] { return isQuiet(account.id); }));
    EXPECT_EQ(follower_->checks, 1);
    EXPECT_EQ(*store_->selection().unified, UnifiedMailbox::mailbox(MailboxRole::inbox));
    EXPECT_EQ(store_->prefetch().bodiesMissing(account.id), 0);

    const auto request = store_->selection().currentList();
    ASSERT_TRUE(request);
    const MailboxKey inbox{account.id, "INBOX"};
    const auto uids = store_->context().messages.uids(inbox);
    store_->actions().archive({*store_->context().messages.find(inbox, uids.at(0))});
    EXPECT_EQ(sessionsWith("UID MOVE"), 0U);
    run([this] { return store_->stop(); });
    EXPECT_EQ(sessionsWith("UID MOVE"), 1U);
    EXPECT_EQ(store_->context().messages.uids(inbox).size(), 2U);
}

TEST_F(MailStoreTest, AnAccountCanGoInTheMiddleOfItsPass) {
    const auto staying = add(servers_->imap(ServerConfig::Security::tls));
    run([this] { return store_->start(); });
    ASSERT_TRUE(eventually([&] { return isQuiet(staying.id); }));

    auto server = servers_->imap(ServerConfig::Security::tls);
    FaultProxy proxy(server.host, server.port);
    server.host = "localhost";
    server.port = proxy.port();
    const auto going = add(server);
    run([this] { return store_->start(); });
    ASSERT_TRUE(eventually([&] { return follower_->checks == 2 && isQuiet(going.id); }));
    const auto bodies = directory_ / "Messages" / going.id.text();
    EXPECT_TRUE(fs::exists(bodies));
    settings_.setDate("bodyCutoff." + going.id.text(), clock_->now());
    store_->bodyIndex().add("<going@x>", going.id, "departing");
    store_->bodyIndex().add("<staying@x>", staying.id, "departing");
    store_->selection().selectMailbox("INBOX", going.id);

    // A pass finds that the connection is gone; the next one connects, and hangs.
    proxy.fail({FaultProxy::Fault::Kind::stall, FaultProxy::Fault::Direction::toClient, 0});
    proxy.breakAll();
    store_->refreshAll();
    ASSERT_TRUE(eventually([&] { return store_->status().of(going.id).kind == SyncStatus::Kind::failed; }));
    store_->refreshAll();
    ASSERT_TRUE(eventually([&] { return proxy.hasStruck(); }));
    EXPECT_EQ(store_->status().of(going.id).kind, SyncStatus::Kind::syncing);
    const MailboxKey inbox{going.id, "INBOX"};
    store_->actions().archive({*store_->context().messages.find(inbox, store_->context().messages.uids(inbox).at(0))});
    run([&] { return accounts_.remove(going.id); });
    proxy.fail({});
    run([this] { return store_->start(); });

    EXPECT_FALSE(store_->context().mailboxes.find(inbox));
    EXPECT_TRUE(store_->context().messages.uids(inbox).empty());
    EXPECT_FALSE(fs::exists(bodies));
    EXPECT_FALSE(settings_.date("bodyCutoff." + going.id.text()));
    EXPECT_THAT(store_->bodyIndex().search("departing"), testing::ElementsAre("<staying@x>"));
    EXPECT_FALSE(store_->status().accounts->contains(going.id));
    EXPECT_FALSE(store_->sync().lastResults().contains(going.id));
    EXPECT_FALSE(store_->status().lastChecked->contains(going.id));
    EXPECT_EQ(*store_->selection().unified, UnifiedMailbox::mailbox(MailboxRole::inbox));
    EXPECT_EQ(follower_->removals, 1);
    store_->actions().commitPendingAction();
    run([this] { return store_->actions().finished(); });
    EXPECT_FALSE(store_->context().mailboxes.find(inbox));
    EXPECT_EQ(store_->context().messages.uids({staying.id, "INBOX"}).size(), 3U);
    EXPECT_TRUE(fs::exists(directory_ / "Messages" / staying.id.text()));
}

}}
