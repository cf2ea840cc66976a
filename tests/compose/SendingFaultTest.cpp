// Messages on their way to a real server, over a line that fails in the middle of a word. Each arrives once; but when
// the line died between the last byte of a message and the word that it was accepted, nobody can know, and it may
// arrive twice.

#include "base/ManualClock.h"
#include "compose/OpenOutbox.h"
#include "support/ServerTest.h"

#include <algorithm>
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <map>
#include <set>

namespace velmo::test { namespace {

using namespace std::chrono_literals;
using Fault = FaultProxy::Fault;
using Passage = TLSRelay::Passage;

class SendingFaults : public WithServers<> {
  protected:
    void prepare() override {
        servers_.emplace();
        relay_.emplace(servers_->smtp(ServerConfig::Security::tls), servers_->certificate());
        home_.emplace(aliceBehind(*relay_, *servers_), servers_->value("ALICE_PASSWORD"));
        process_ = std::make_unique<OpenOutbox>(*home_, clock_);
        ASSERT_EQ(process_->store().pass(), SyncStatus::idle());
    }

    void TearDown() override { process_.reset(); }

    void enqueue() {
        process_->enqueue(toBob(home_->account, clock_->now(), fmt::format("<{:05}@example.test>", ++enqueued_)));
    }

    void tryAgain() {
        clock_->advance(60s);
        process_->settle();
    }

    /// Lets time pass as long as every line stands still; true once no message waits for one.
    bool isGivenUp() {
        return process_->store().eventually([this] {
            const auto stalled = relay_->stalled();
            if (stalled > 0 && process_->outbox().sending->size() == stalled) clock_->advance(1s);
            return process_->outbox().sending->empty();
        });
    }

    /// What goes through when nothing fails.
    Passage undisturbed() {
        enqueue();
        process_->settle();
        return relay_->passages().back();
    }

    void expectEachOnce();

    std::optional<MailServers> servers_;
    std::optional<TLSRelay> relay_;
    std::optional<StoreHome> home_;
    std::shared_ptr<ManualClock> clock_ = std::make_shared<ManualClock>();
    std::unique_ptr<OpenOutbox> process_;
    int enqueued_ = 0;
    int doubtful_ = 0; ///< connections that ended where nobody can know
};

/// The client may have the word that it was accepted.
bool wasAcknowledged(const Passage& passage) {
    const auto start = passage.toClient.find("\r\n354 ");
    const auto answer = passage.toClient.find("\r\n250 ", start);
    return start != std::string::npos && answer != std::string::npos &&
           passage.toClient.find('\n', answer + 2) != std::string::npos;
}

void SendingFaults::expectEachOnce() {
    EXPECT_TRUE(process_->outbox().items->empty());
    EXPECT_TRUE(std::filesystem::is_empty(OpenOutbox::folderOf(*home_)));
    ASSERT_TRUE(eventually([this] { return servers_->hasDelivered(); }));
    std::map<std::string, std::vector<std::string>> arrived, filed;
    for (const auto& message : servers_->mail("bob"))
        arrived[messageIDIn(message.bytes)].push_back(ownPart(message.bytes));
    for (const auto& message : servers_->mail("alice", "Sent"))
        filed[messageIDIn(message.bytes)].push_back(message.bytes);
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
        for (const auto& copy : copies) EXPECT_EQ(copy, filed[id][0] + "\n") << id;
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
    process_->settle();
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
        ASSERT_TRUE(process_->store().eventually([&] { return relay_->stalled() == atOnce; }));
        ASSERT_TRUE(isGivenUp());
        tryAgain();
    }
    expectEachOnce();
    EXPECT_GE(doubtful_, 2);
}

}}
