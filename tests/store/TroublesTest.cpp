#include "store/Troubles.h"

#include "base/ManualClock.h"

#include <gtest/gtest.h>

namespace velmo::test { namespace {

std::vector<std::string> texts(const std::vector<Trouble>& troubles) {
    std::vector<std::string> found;
    for (const auto& each : troubles) found.push_back(each.text);
    return found;
}

using Texts = std::vector<std::string>;

TEST(TroublesTest, StandUntilTheyAreSettledAndAreToldOnceAlsoByTheNextProcess) {
    MemorySettings settings;
    const auto clock = std::make_shared<ManualClock>();
    const UUID account = UUID::random();
    {
        Troubles troubles(settings, clock);
        troubles.add("send.1", account, "First.");
        troubles.add("mailbox.Work", std::nullopt, "Second \xff.");
    }
    Troubles troubles(settings, clock);
    EXPECT_EQ(troubles.takeUntold().size(), 2u);
    EXPECT_TRUE(Troubles(settings, clock).takeUntold().empty());

    clock->advance(Duration(60'000));
    troubles.add("send.1", account, "First.");
    EXPECT_TRUE(troubles.takeUntold().empty());
    EXPECT_EQ(troubles.all->back().at, clock->now());
    troubles.add("send.1", account, "First, and worse.");
    EXPECT_EQ(texts(troubles.takeUntold()), Texts{"First, and worse."});

    troubles.settleAll("mailbox.");
    EXPECT_EQ(texts(Troubles(settings, clock).all.get()), Texts{"First, and worse."});
    troubles.settleAccount(account);
    EXPECT_TRUE(Troubles(settings, clock).all->empty());
    EXPECT_TRUE(settings.keys().empty());
}

TEST(TroublesTest, AreBoundedAndSurviveDamage) {
    MemorySettings settings;
    const auto clock = std::make_shared<ManualClock>();
    settings.setText("_troubles",
                     R"([{"key": 1}, {"key": "a", "account": "x", "at": 5, "text": "Kept.", "isTold": true}])");
    Troubles troubles(settings, clock);
    EXPECT_EQ(texts(troubles.all.get()), Texts{"Kept."});
    for (int i = 0; i < 150; ++i) troubles.add(std::to_string(i), std::nullopt, "Refused.");
    EXPECT_EQ(troubles.all->size(), 100u);
    EXPECT_EQ(troubles.all->back().key, "149");
}

}}
