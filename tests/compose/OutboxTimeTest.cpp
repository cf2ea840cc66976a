// Messages whose time comes: while somebody takes them back, on a clock that jumps, beside what can't be sent.

#include "base/ManualClock.h"
#include "compose/OpenOutbox.h"

#include <array>
#include <atomic>
#include <gtest/gtest.h>
#include <random>
#include <thread>

namespace velmo::test { namespace {

using namespace std::chrono_literals;

/// Time passes as a test tells it; what the clock shows can be set to something else meanwhile.
class SetClock final : public Clock {
  public:
    Date now() const override { return time.now() + offset.load(); }
    Instant instant() const override { return time.instant(); }
    Async<void> wait(Duration duration) override { return time.wait(duration); }

    ManualClock time;
    std::atomic<Duration> offset = Duration{};
};

class OutboxTime : public testing::Test {
  protected:
    OutboxTime() { open(); }

    void open() {
        process_.reset();
        process_ = std::make_unique<OpenOutbox>(
            home_, clock_,
            [this](MailAccount account, MailCredential, SMTPEnvelope, std::shared_ptr<const Bytes>) -> Async<void> {
                const auto effort = effort_;
                co_await callOn(process_->store().runtime.executors().background,
                                [effort] { std::this_thread::sleep_for(effort); });
                delivered_.push_back({account.id, clock_->now()});
            });
    }

    OutboxItem enqueue(Duration delay) { return enqueue(delay, home_.account); }
    OutboxItem enqueue(Duration delay, const MailAccount& account) {
        const auto item = toBob(account, clock_->now() + delay, "<" + UUID::random().text() + "@example.test>");
        process_->enqueue(item);
        return item;
    }

    bool hasFile(const OutboxItem& item, std::string_view ending = ".json") const {
        return std::filesystem::exists(OpenOutbox::folderOf(home_) / (item.id.text() + std::string(ending)));
    }

    bool isWaiting() {
        return process_->store().eventually([this] { return clock_->time.waiting() > 0; });
    }

    /// Lets time pass once the outbox waits for it, and what is due then be sent; false when one of these fails.
    bool pass(Duration duration) {
        if (!isWaiting()) return false;
        clock_->time.advance(duration);
        const auto isDue = [this](const auto& item) {
            return item->accountID == home_.account.id && item->sendAt <= clock_->now();
        };
        return process_->store().eventually([&] { return std::ranges::none_of(*process_->outbox().items, isDue); });
    }

    struct Delivery {
        UUID accountID;
        Date at;
    };

    // Its server is nowhere, and files by itself what was sent.
    StoreHome home_{[] {
                        MailAccount account =
                            StoreHome::accountAt(ServerConfig("127.0.0.1", 1, ServerConfig::Security::tls), "alice");
                        account.provider = MailProvider::google;
                        return account;
                    }(),
                    "x"};
    std::shared_ptr<SetClock> clock_ = std::make_shared<SetClock>();
    std::chrono::microseconds effort_{0}; ///< what a delivery takes
    std::vector<Delivery> delivered_;
    std::unique_ptr<OpenOutbox> process_;
};

TEST_F(OutboxTime, TakenBackAtAnyMomentItIsSentOrNot) {
    for (const Duration moment : {0ms, 1ms, 9'999ms, 10'000ms, 10'001ms, 60'000ms}) {
        for (const bool isHandled : {true, false}) {
            SCOPED_TRACE(testing::Message() << moment.count() << " ms, " << isHandled);
            delivered_.clear();
            const auto item = enqueue(10s);
            ASSERT_TRUE(isWaiting());
            clock_->time.advance(moment);
            if (isHandled) process_->settle(); // else the outbox has not woken up yet
            const bool isTaken = process_->takeBack(item.id);
            clock_->time.advance(1h);
            process_->settle();
            EXPECT_EQ(delivered_.size(), isTaken ? 0U : 1U);
            EXPECT_FALSE(hasFile(item));
            EXPECT_TRUE(isTaken || moment >= 10s);
            EXPECT_FALSE(isTaken && moment >= 10s && isHandled);
        }
    }
}

/// Two things that a person does, and the time that comes, all at once: one of them has its way, and only one.
TEST_F(OutboxTime, WhateverRacesOneHasItsWay) {
    using Deed = Async<bool> (Outbox::*)(UUID);
    constexpr std::array<Deed, 3> deeds{&Outbox::takeBack, &Outbox::discard, &Outbox::retry};
    std::mt19937 random{7};
    std::array<int, 3> ends{};
    const auto& executors = process_->store().runtime.executors();
    for (int round = 0; round < 250; ++round) {
        delivered_.clear();
        const auto item = enqueue(10s);
        std::array<bool, 3> done{};
        const auto moment = [&] { return std::chrono::microseconds(random() % 1000); };
        effort_ = moment();
        const auto act = [&](std::size_t which) {
            return Task(executors.main, [&, which, pause = moment()]() -> Async<void> {
                co_await callOn(executors.io, [pause] { std::this_thread::sleep_for(pause); });
                const bool isDone = co_await (process_->outbox().*deeds[which])(item.id);
                done[which] = isDone || done[which];
            });
        };
        std::jthread time([&, pause = moment()] {
            std::this_thread::sleep_for(pause);
            clock_->time.advance(10s);
        });
        Task first = act(random() % 3), second = act(random() % 3);
        process_->store().run([&]() -> Async<void> {
            co_await first.finished();
            co_await second.finished();
        });
        time.join();
        process_->settle();
        const std::array<bool, 3> outcome{done[0], done[1], !delivered_.empty()};
        EXPECT_EQ(std::ranges::count(outcome, true), 1) << outcome[0] << outcome[1] << outcome[2];
        EXPECT_LE(delivered_.size(), 1U);
        EXPECT_EQ(hasFile(item, ".taken"), outcome[0]);
        EXPECT_FALSE(hasFile(item));
        for (std::size_t i = 0; i < ends.size(); ++i) ends[i] += outcome[i] ? 1 : 0;
        if (HasFailure()) return;
    }
    for (const int end : ends) EXPECT_GE(end, 10);
}

TEST_F(OutboxTime, AClockThatIsSetSendsNothingTwiceOrTooEarly) {
    struct Case {
        const char* name;
        Duration set;  ///< what the clock is set on by, before the time has come
        Duration jump; ///< how long the machine sleeps then
    };
    for (const auto& c : {Case{"set back", -3h, 0s}, Case{"set back a little", -1s, 0s}, Case{"set on", 4h, 0s},
                          Case{"set on to just before", 59min + 59s, 0s}, Case{"asleep", 0s, 9h},
                          Case{"set back and asleep", -3h, 9h}, Case{"set on and asleep", 4h, 9h}}) {
        SCOPED_TRACE(c.name);
        delivered_.clear();
        const auto item = enqueue(2h);
        for (int minute = 0; minute < 60; ++minute) ASSERT_TRUE(pass(1min));
        EXPECT_TRUE(delivered_.empty());
        clock_->offset = clock_->offset.load() + c.set;
        const Date before = clock_->now();
        ASSERT_TRUE(c.jump == 0s || pass(c.jump));
        // However late it gets, it is never the second time.
        for (int minute = 0; minute < 600 && hasFile(item); ++minute) ASSERT_TRUE(pass(1min));
        ASSERT_EQ(delivered_.size(), 1U);
        EXPECT_GE(delivered_[0].at, item.sendAt);
        EXPECT_LE(delivered_[0].at, std::max(item.sendAt, before + c.jump) + 1min);
        clock_->time.advance(24h);
        process_->settle();
        EXPECT_EQ(delivered_.size(), 1U);
    }
}

TEST_F(OutboxTime, WhatCannotBeSentKeepsNothingElseFromIt) {
    MailAccount gone = home_.account;
    gone.id = UUID::random();
    gone.email = "gone@example.test";
    auto& accounts = process_->store().mail().environment().accounts;
    process_->store().run([&]() -> Async<void> { co_await accounts.add(gone, "x"); });
    const auto stranded = enqueue(10s, gone), first = enqueue(10s), second = enqueue(1h);
    process_->store().run([&]() -> Async<void> { co_await accounts.remove(gone.id); });
    ASSERT_TRUE(pass(10s));
    EXPECT_EQ(delivered_.size(), 1U);

    // At the next start there are also things in the folder that are no items.
    const auto folder = OpenOutbox::folderOf(home_);
    process_.reset();
    writeFile(folder / (UUID::random().text() + ".json"), "{");
    writeFile(folder / "notes.json", contentsOf(folder / (second.id.text() + ".json")));
    std::filesystem::create_directory(folder / (UUID::random().text() + ".json"));
    std::filesystem::create_symlink("nowhere", folder / (UUID::random().text() + ".json"));
    open();
    for (int minute = 0; minute < 61 && hasFile(second); ++minute) ASSERT_TRUE(pass(1min));
    ASSERT_EQ(delivered_.size(), 2U);
    for (const auto& delivery : delivered_) EXPECT_EQ(delivery.accountID, home_.account.id);
    EXPECT_TRUE(hasFile(stranded));
    EXPECT_EQ(process_->outbox().items->size(), 1U);
}

}}
