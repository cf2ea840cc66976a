#include "store/Housekeeping.h"

#include "store/ListsFixture.h"

namespace velmo::test { namespace {

class HousekeepingTest : public ListsFixture {
  protected:
    std::int64_t add(const std::string& snippet, const std::string& from, const std::string& category) {
        auto message = record(inbox1, 1);
        message.snippet = snippet;
        message.fromEmail = from;
        message.subject = "Your receipt from the shop";
        message.categoryRaw = category;
        std::vector records{message};
        insert(records);
        return records[0].id;
    }
    /// As an older version has left it.
    void makeOlder() { sqlite::Database(context->container()->file()).execute("UPDATE origin SET isOlder = 1"); }
    MessageRecord held(std::int64_t id) { return *context->messages.find(id); }

    MemorySettings settings;
};

TEST_F(HousekeepingTest, EachStepIsTakenOnce) {
    const auto marked = add("<p>Hello</p>Tom &amp; Ann", "tom@example.org", "newsletters");
    const auto styled = add("@media print { a { color: red } } Hello", "tom@example.org", "");
    const auto plain = add("Thank you", "orders@shop.example", "promotions");
    makeOlder();
    keepHouse(*context, settings);
    EXPECT_EQ(held(marked).snippet, "Hello Tom & Ann");
    EXPECT_THAT(held(styled).snippet, testing::Not(testing::HasSubstr("{")));
    EXPECT_EQ(held(plain).snippet, "Thank you");
    const auto category = categorise("orders@shop.example", held(plain).subject, "Thank you", std::nullopt);
    ASSERT_TRUE(category);
    EXPECT_EQ(held(plain).categoryRaw, rawText(*category));
    for (const auto* key : {"cleanedSnippets.v1", "cleanedSnippets.v2", "categorized.v1"})
        EXPECT_EQ(settings.boolean(key), true) << key;
    EXPECT_FALSE(context->labels.all().empty());

    const auto later = add("<i>Later</i>", "orders@shop.example", "promotions");
    keepHouse(*context, settings);
    EXPECT_EQ(held(later).snippet, "<i>Later</i>");
    EXPECT_EQ(held(later).categoryRaw, "promotions");
}

TEST_F(HousekeepingTest, FreshMailStaysAsItCame) {
    // What a header told, and a label that was taken off.
    const auto mailing = add("A &lt; B", "tom@example.org", "promotions");
    const auto personal = add("Win a prize", "orders@shop.example", "");
    const auto before = std::vector{held(mailing), held(personal)};
    keepHouse(*context, settings);
    EXPECT_EQ((std::vector{held(mailing), held(personal)}), before);
    EXPECT_FALSE(context->labels.all().empty());
    EXPECT_EQ(settings.boolean("categorized.v1"), true);
    // Not when the settings are lost either.
    MemorySettings lost;
    keepHouse(*context, lost);
    EXPECT_EQ(held(personal), before[1]);
}

TEST_F(HousekeepingTest, EveryMessageOfALargeStoreIsReached) {
    std::vector<MessageRecord> records;
    for (int i = 0; i < 1'203; ++i) {
        records.push_back(record(inbox1, i));
        records.back().snippet = "a &lt; b";
    }
    insert(records);
    makeOlder();
    keepHouse(*context, settings);
    for (const auto& message : records) ASSERT_EQ(held(message.id).snippet, "a < b") << message.id;
}

}}
