// Servers that hang or speak nonsense: what the person reads, how the tries are spaced, that nothing has to wait for
// them at the end, and that they are no trouble of other accounts.

#include "base/ManualClock.h"
#include "store/StoreHome.h"
#include "store/SyncLoop.h"
#include "support/ScriptedServer.h"
#include "support/ServerTest.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace velmo::test { namespace {

using namespace std::chrono_literals;

constexpr Duration readTimeout{30'000};
constexpr Duration waits[]{30s, 60s, 120s, 240s, 480s, 900s, 900s};

std::string tag(int number) {
    return "b" + std::to_string(number);
}

std::string signIn(int first) {
    return "S: * OK [CAPABILITY IMAP4rev1 AUTH=PLAIN SASL-IR] hello\nC~ " + tag(first) +
           " AUTHENTICATE PLAIN *\nS: " + tag(first) + " OK in\nC: " + tag(first + 1) +
           " CAPABILITY\nS: * CAPABILITY IMAP4rev1\nS: " + tag(first + 1) + " OK\n";
}

/// Everything up to the first FETCH, with these bytes for its answer.
std::string fetching(int first, const std::string& answer) {
    return signIn(first) + "C: " + tag(first + 2) +
           " LIST \"\" \"*\"\nS: * LIST () \"/\" \"INBOX\"\nS: " + tag(first + 2) + " OK\nC~ " + tag(first + 3) +
           " STATUS *\nS: * STATUS \"INBOX\" (MESSAGES 2 UNSEEN 2 UIDNEXT 3)\nS: " + tag(first + 3) + " OK\nC~ " +
           tag(first + 4) + " SELECT *\nS: * 2 EXISTS\nS: * OK [UIDVALIDITY 7]\nS: " + tag(first + 4) + " OK\nC~ " +
           tag(first + 5) + " FETCH *\nS> " + answer + "\n";
}

/// A server that does the same to everyone who comes.
struct Hostile {
    const char* name;
    std::string (*conversation)(int firstTag);
    int tags;          ///< that a conversation uses
    const char* heard; ///< of the client when the server hangs; absent: it does not hang
    const char* sentence;
};

constexpr const char* cannotConnect = "Couldn't connect to localhost. Check the server and your connection.";
constexpr const char* nonsense = "The mail server sent something unexpected: ";
constexpr const char* closed = "localhost closed the connection.";

const Hostile hostile[]{
    {"HangsAfterTheGreeting",
     [](int first) {
         return "S: * OK [CAPABILITY IMAP4rev1 AUTH=PLAIN SASL-IR] hello\nC~ " + tag(first) + " AUTHENTICATE *\n";
     },
     1, " AUTHENTICATE", cannotConnect},
    {"HangsInAFetch", [](int first) { return fetching(first, "* 1 FETCH (UID 1 FLAGS (\\\\Seen) BODY"); }, 6, " FETCH",
     cannotConnect},
    {"HangsInALiteral", [](int first) { return fetching(first, "* 1 FETCH (UID 1 BODY[] {1000}\\r\\nDear"); }, 6,
     " FETCH", cannotConnect},
    {"SpeaksNonsense", [](int) -> std::string { return "S> \\xff\\0\\x80{99}((((\\\"\\r\\n\n"; }, 0, nullptr, nonsense},
    {"LeavesAtOnce", [](int) -> std::string { return "CLOSE\n"; }, 0, nullptr, closed},
};

std::string transcript(const Hostile& server) {
    std::string all;
    for (int i = 0; i <= int(std::size(waits)); ++i) {
        if (i > 0) all += "---\n";
        all += server.conversation(1 + i * server.tags);
    }
    return all;
}

std::ptrdiff_t count(const std::string& text, std::string_view part) {
    std::ptrdiff_t times = 0;
    for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++times;
    return times;
}

class HostileServer : public testing::TestWithParam<Hostile> {
  protected:
    ScriptedServer server{transcript(GetParam()), ScriptedServer::Options(ScriptedServer::Security::tls)};
    std::shared_ptr<ManualClock> clock = std::make_shared<ManualClock>();
    MailAccount account =
        StoreHome::accountAt(ServerConfig("localhost", server.port(), ServerConfig::Security::tls), "mallory");

    bool hangs(int connections) const {
        return GetParam().heard != nullptr && count(server.received(), GetParam().heard) == connections &&
               clock->isDueIn(readTimeout);
    }
};

TEST_P(HostileServer, IsTriedAtGrowingIntervalsAndHoldsUpNoEnd) {
    const StoreHome home(account, "secret");
    OpenStore store(home, clock);
    const auto status = [&] { return store.mail().status().of(account.id); };
    store.run([&] { return store.mail().start(); });
    int connections = 1;
    for (const auto wait : waits) {
        ASSERT_TRUE(store.eventually([&] { return server.connections() == connections; })) << status().text;
        const auto hasFailed = [&] { return status().kind == SyncStatus::Kind::failed && clock->isDueIn(wait); };
        // Between a write and the read after it a limit passes in vain; then the next one counts.
        const auto failsInTime = [&] {
            if (status().kind == SyncStatus::Kind::syncing && hangs(connections)) clock->advance(readTimeout);
            return hasFailed();
        };
        ASSERT_TRUE(store.eventually(failsInTime)) << wait.count() << status().text << server.received();
        EXPECT_THAT(status().text, testing::HasSubstr(GetParam().sentence));
        EXPECT_TRUE(store.mail().status().lastChecked->empty());
        clock->advance(wait);
        ++connections;
    }
    ASSERT_TRUE(store.eventually([&] { return server.connections() == connections; }));
    ASSERT_TRUE(store.eventually([&] { return GetParam().heard == nullptr || hangs(connections); }));
    // Time stands still from here on: the end waits for no limit to pass.
    store.run([&] { return store.mail().stop(); });
}

INSTANTIATE_TEST_SUITE_P(Kinds, HostileServer, testing::ValuesIn(hostile),
                         [](const auto& one) { return std::string(one.param.name); });

using HostileServers = WithServers<>;

TEST_F(HostileServers, AreNoTroubleOfOtherAccounts) {
    const ScriptedServer server("PAUSE"); // which never comes to the handshake
    const MailAccount bad =
        StoreHome::accountAt(ServerConfig("127.0.0.1", server.port(), ServerConfig::Security::tls), "mallory");
    const MailServers servers;
    servers.fill(5);
    const StoreHome home(servers);
    const auto clock = std::make_shared<ManualClock>();
    OpenStore store(home, clock, {{bad, "secret"}});
    auto& status = store.mail().status();
    const auto isChecked = [&] { return status.lastChecked->contains(home.account.id); };
    store.run([&] { return store.mail().start(); });
    ASSERT_TRUE(store.eventually(isChecked));
    EXPECT_EQ(store.held("INBOX").size(), 5U);
    EXPECT_EQ(status.of(home.account.id), SyncStatus::idle());
    EXPECT_EQ(status.of(bad.id), SyncStatus::syncing());
    EXPECT_EQ(server.connections(), 1);
    store.run([&] { return store.mail().stop(); });
}

}}
