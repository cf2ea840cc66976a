// Messages on their way to a real server, over a line that fails in the middle of a word. Each arrives once; but when
// the line died between the last byte of a message and the word that it was accepted, nobody can know, and it may
// arrive twice.

#include "base/ManualClock.h"
#include "base/Text.h"
#include "compose/Outbox.h"
#include "store/StoreHome.h"
#include "support/ServerTest.h"
#include "support/TLSRelay.h"

#include <algorithm>
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <map>
#include <set>

namespace velmo::test { namespace {

using namespace std::chrono_literals;
using Fault = FaultProxy::Fault;
using Passage = TLSRelay::Passage;

/// From the first of our own headers on: above them stand those of the servers on the way.
std::string ownPart(const std::string& message) {
    return message.substr(std::min(message.find("From: "), message.size()));
}

std::string messageIDIn(const std::string& message) {
    const auto start = message.find("Message-ID: ");
    if (start == std::string::npos) return {};
    return message.substr(start + 12, message.find_first_of("\r\n", start) - start - 12);
}

class SendingFaults : public WithServers<> {
  protected:
    void prepare() override {
        servers_.emplace();
        relay_.emplace(servers_->smtp(ServerConfig::Security::tls), servers_->certificate());
        MailAccount alice =
            StoreHome::accountAt(servers_->imap(ServerConfig::Security::tls), servers_->value("ALICE_USER"));
        alice.email = "alice@example.test";
        alice.outgoing = ServerConfig("localhost", relay_->port(), ServerConfig::Security::tls);
        home_.emplace(alice, servers_->value("ALICE_PASSWORD"));
        store_ = std::make_unique<OpenStore>(*home_, clock_);
        network_ = std::make_unique<NetworkMonitor>(store_->runtime.executors().main, *clock_, path_);
        auto outbox = std::make_unique<Outbox>(
            Outbox::Parts(store_->mail(), store_->settings, *network_, home_->store() / "Outbox"));
        outbox_ = outbox.get();
        store_->mail().add(std::move(outbox));
        outbox_->start();
        ASSERT_EQ(store_->pass(), SyncStatus::idle());
    }

    void TearDown() override {
        store_.reset();
        network_.reset();
    }

    void enqueue() {
        OutboxItem item;
        item.id = UUID::random();
        item.accountID = home_->account.id;
        item.sendAt = clock_->now();
        item.to = {{"Bob", "bob@example.test"}};
        item.subject = "Hello";
        item.body = "First\n.\n..\n\nlast line\n.";
        item.messageID = fmt::format("<{:05}@example.test>", ++enqueued_);
        store_->run([&] { return outbox_->enqueue(item); });
    }

    void settle() {
        store_->run([this] { return outbox_->finished(); });
    }

    void tryAgain() {
        clock_->advance(60s);
        settle();
    }

    /// Lets time pass as long as every line stands still; true once no message waits for one.
    bool isGivenUp() {
        return store_->eventually([this] {
            const auto stalled = relay_->stalled();
            if (stalled > 0 && outbox_->sending->size() == stalled) clock_->advance(1s);
            return outbox_->sending->empty();
        });
    }

    /// What goes through when nothing fails.
    Passage undisturbed() {
        enqueue();
        settle();
        return relay_->passages().back();
    }

    void expectEachOnce();

    std::optional<MailServers> servers_;
    std::optional<TLSRelay> relay_;
    std::optional<StoreHome> home_;
    std::shared_ptr<ManualClock> clock_ = std::make_shared<ManualClock>();
    MemoryNetworkPath path_;
    std::unique_ptr<OpenStore> store_;
    std::unique_ptr<NetworkMonitor> network_;
    Outbox* outbox_ = nullptr;
    int enqueued_ = 0;
    int doubtful_ = 0; ///< connections that ended where nobody can know
};

/// The server may have the whole message.
bool wasCarriedWhole(const Passage& passage) {
    return passage.toServer.contains("\r\nDATA\r\n") && passage.toServer.contains("\r\n.\r\n");
}

/// The client may have the word that it was accepted.
bool wasAcknowledged(const Passage& passage) {
    const auto start = passage.toClient.find("\r\n354 ");
    const auto answer = passage.toClient.find("\r\n250 ", start);
    return start != std::string::npos && answer != std::string::npos &&
           passage.toClient.find('\n', answer + 2) != std::string::npos;
}

void SendingFaults::expectEachOnce() {
    EXPECT_TRUE(outbox_->items->empty());
    EXPECT_TRUE(std::filesystem::is_empty(home_->store() / "Outbox"));
    ASSERT_TRUE(eventually([this] { return servers_->hasDelivered(); }));
    std::map<std::string, std::vector<std::string>> arrived, filed;
    for (const auto& message : servers_->mail("bob")) arrived[messageIDIn(message)].push_back(ownPart(message));
    for (const auto& message : servers_->mail("alice", "Sent")) filed[messageIDIn(message)].push_back(message);
    std::map<std::string, std::size_t> doubts;
    for (const auto& passage : relay_->passages()) {
        if (!wasCarriedWhole(passage) || (wasAcknowledged(passage) && passage.fault.kind != Fault::Kind::reset))
            continue;
        if (!passage.hasStruck) continue;
        ++doubts[messageIDIn(passage.toServer)];
        ++doubtful_;
    }
    EXPECT_EQ(arrived.size(), std::size_t(enqueued_));
    EXPECT_EQ(filed.size(), std::size_t(enqueued_));
    for (const auto& [id, copies] : arrived) {
        EXPECT_LE(copies.size(), 1 + doubts[id]) << id;
        ASSERT_EQ(filed[id].size(), 1U) << id;
        EXPECT_TRUE(std::ranges::count(copies, filed[id][0] + "\n") > 0) << id;
    }
}

/// Places in a conversation: so many bytes apart, and at each of these distances from the end of a line that is not the
/// message's.
std::vector<std::int64_t> places(const std::string& conversation, std::size_t step,
                                 std::initializer_list<int> distances) {
    const auto message = conversation.find("\r\nFrom: "), end = conversation.find("\r\n.\r\n");
    std::set<std::int64_t> all;
    for (std::size_t place = 0; place <= conversation.size(); place += step) all.insert(std::int64_t(place));
    for (std::size_t line = 0; (line = conversation.find("\r\n", line)) != std::string::npos; line += 2)
        if (line <= message || line >= end)
            for (const int distance : distances) all.insert(std::int64_t(line) + distance);
    return {all.begin(), all.end()};
}

TEST_F(SendingFaults, ABrokenLineDoublesNothingButInDoubt) {
    Passage whole = undisturbed();
    std::vector<Fault> faults(3, Fault(Fault::Kind::refuse));
    for (const auto direction : {Fault::Direction::toServer, Fault::Direction::toClient})
        for (const auto kind : {Fault::Kind::cut, Fault::Kind::reset})
            for (const auto place : places(whole.carried(direction), 64, {0, 1, 2}))
                faults.emplace_back(kind, direction, place);
    relay_->plan(faults);
    for (std::size_t i = 0; i < faults.size(); ++i) enqueue();
    settle();
    tryAgain();
    expectEachOnce();
    EXPECT_GE(doubtful_, 4);
}

TEST_F(SendingFaults, AStandstillDoublesNothingButInDoubt) {
    Passage whole = undisturbed();
    // Nobody waits for what comes behind these.
    whole.toServer.resize(whole.toServer.find("\r\n.\r\n") + 4);
    whole.toClient.resize(whole.toClient.find("\r\n", whole.toClient.find(" queued as ")) + 1);
    std::vector<Fault> faults;
    for (const auto direction : {Fault::Direction::toServer, Fault::Direction::toClient})
        for (const auto place : places(whole.carried(direction), 50, {2}))
            faults.emplace_back(Fault::Kind::stall, direction, place);
    while (!faults.empty()) {
        const auto atOnce = std::min(faults.size(), std::size_t(4));
        relay_->plan({faults.end() - std::ptrdiff_t(atOnce), faults.end()});
        faults.resize(faults.size() - atOnce);
        for (std::size_t i = 0; i < atOnce; ++i) enqueue();
        ASSERT_TRUE(store_->eventually([&] { return relay_->stalled() == atOnce; }));
        ASSERT_TRUE(isGivenUp());
        tryAgain();
    }
    expectEachOnce();
    EXPECT_GE(doubtful_, 2);
}

}}
