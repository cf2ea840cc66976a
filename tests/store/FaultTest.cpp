// What a line that fails does to a pass and to an action: wherever it happens, the store ends in agreement with the
// server, and no message is lost.

#include "base/UserError.h"
#include "store/MessageActions.h"
#include "store/StoreRig.h"
#include "support/FaultProxy.h"
#include "support/ServerTest.h"

#include <gtest/gtest.h>

namespace velmo::test { namespace {

using Kind = FaultProxy::Fault::Kind;
using Direction = FaultProxy::Fault::Direction;

constexpr int messageCount = 12;

/// An account behind a line that can fail, and the same account seen directly.
class FaultyLine : public WithServers<testing::TestWithParam<Kind>> {
  protected:
    void prepare() override {
        servers.emplace();
        servers->fill(messageCount);
        direct = servers->imap(ServerConfig::Security::tls);
        proxy.emplace(direct.host, direct.port);
    }

    /// An account that has nothing yet.
    std::unique_ptr<StoreRig> freshRig() {
        ServerConfig server = direct;
        server.host = "localhost";
        server.port = proxy->port();
        return std::make_unique<StoreRig>(server, servers->value("ALICE_USER"), servers->value("ALICE_PASSWORD"),
                                          std::make_shared<SystemClock>());
    }

    static std::shared_ptr<AccountSync> syncOf(StoreRig& rig) {
        return std::make_shared<AccountSync>(rig.environment, rig.status, rig.directoryOfMailboxes, rig.engines,
                                             AccountSync::Hooks());
    }

    void pass(StoreRig& rig) {
        const auto sync = syncOf(rig);
        rig.run([&]() -> Async<void> { return sync->syncAccount(rig.account); });
    }

    /// Message-IDs by mailbox, as the server has them.
    std::map<std::string, std::multiset<std::string>> onServer() {
        Runtime runtime;
        SystemClock clock;
        std::map<std::string, std::multiset<std::string>> all;
        const auto credential =
            MailCredential::password(servers->value("ALICE_USER"), servers->value("ALICE_PASSWORD"));
        IMAPClient client(makeStrand(runtime.executors().io), clock, direct, credential);
        runtime.run([&]() -> Async<void> {
            co_await client.connect();
            for (const std::string path : {"INBOX", "Archive", "Trash"}) {
                const auto state = co_await client.select(path);
                auto& ids = all[path];
                if (state.exists == 0) continue;
                const auto results = co_await client.fetch(path, "1:*", "UID ENVELOPE");
                for (const auto& result : results) ids.insert(result.envelope->messageID.value_or(""));
            }
            co_await client.close();
        });
        return all;
    }

    static std::map<std::string, std::multiset<std::string>> inStore(StoreRig& rig) {
        std::map<std::string, std::multiset<std::string>> all;
        for (const std::string path : {"INBOX", "Archive", "Trash"}) {
            auto& ids = all[path];
            for (const auto& record : rig.held(path)) ids.insert(record.messageID.value_or(""));
        }
        return all;
    }

    /// Closes what a rig has open, so that the next round begins anew.
    static void end(StoreRig& rig) {
        rig.run([&] { return rig.engines.disconnectAll(); });
    }

    /// Places in a conversation of so many bytes: every few of them, and its ends.
    static std::vector<std::int64_t> places(std::int64_t bytes, std::int64_t count) {
        std::vector<std::int64_t> all{0, 1};
        for (std::int64_t i = 1; i <= count; ++i) all.push_back(bytes * i / (count + 1));
        return all;
    }

    std::optional<MailServers> servers;
    ServerConfig direct;
    std::optional<FaultProxy> proxy;
};

TEST_P(FaultyLine, APassEndsInAgreementAtTheNextOne) {
    {
        const auto rig = freshRig();
        pass(*rig);
        end(*rig);
    }
    for (const auto direction : {Direction::toServer, Direction::toClient}) {
        proxy->fail({});
        {
            const auto rig = freshRig();
            pass(*rig);
            end(*rig);
        }
        for (const auto place : places(proxy->carried(direction), GetParam() == Kind::slice ? 2 : 8)) {
            SCOPED_TRACE(testing::Message() << "after " << place << " bytes, direction " << int(direction));
            const auto rig = freshRig();
            proxy->failOnce({GetParam(), direction, place});
            pass(*rig);
            EXPECT_TRUE(proxy->hasStruck());
            EXPECT_NE(rig->status.of(rig->account.id).kind, SyncStatus::Kind::syncing);
            proxy->fail({});
            pass(*rig);
            EXPECT_EQ(rig->status.of(rig->account.id), SyncStatus::idle());
            EXPECT_EQ(inStore(*rig), onServer());
            end(*rig);
        }
    }
}

TEST_P(FaultyLine, AMoveLosesNoMessage) {
    const auto rig = freshRig();
    const auto sync = syncOf(*rig);
    pass(*rig);
    MessageActions::Hooks hooks;
    hooks.syncMailbox = [&](MailAccount account, std::string path) {
        return sync->syncMailboxQuietly(std::move(account), std::move(path));
    };
    const auto actions = std::make_shared<MessageActions>(rig->environment, rig->status, rig->directoryOfMailboxes,
                                                          rig->engines, std::move(hooks));
    const auto everything = onServer();
    std::multiset<std::string> ids;
    for (const auto& [path, held] : everything) ids.insert(held.begin(), held.end());
    for (const auto direction : {Direction::toServer, Direction::toClient}) {
        for (std::int64_t place = 0; place < 700; place += 100) {
            SCOPED_TRACE(testing::Message() << "after " << place << " bytes, direction " << int(direction));
            auto records = rig->held("INBOX", 2);
            const bool goesBack = records.empty();
            if (goesBack) records = rig->held("Archive", 2);
            proxy->failOnce({GetParam(), direction, place});
            if (goesBack)
                actions->moveToInbox(records);
            else
                actions->archive(records);
            actions->commitPendingAction();
            rig->run([&] { return actions->finished(); });
            proxy->fail({});
            pass(*rig);
            EXPECT_TRUE(rig->status.hidden->empty());
            const auto server = onServer();
            EXPECT_EQ(inStore(*rig), server);
            std::multiset<std::string> now;
            for (const auto& [path, held] : server) now.insert(held.begin(), held.end());
            EXPECT_EQ(now, ids);
        }
    }
    end(*rig);
}

std::string nameOf(const testing::TestParamInfo<Kind>& info) {
    return info.param == Kind::cut ? "Cut" : info.param == Kind::reset ? "Reset" : "Slice";
}

INSTANTIATE_TEST_SUITE_P(Faults, FaultyLine, testing::Values(Kind::cut, Kind::reset, Kind::slice), nameOf);

}}
