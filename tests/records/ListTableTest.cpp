#include "records/ListTable.h"

#include "records/ModelContext.h"

#include <boost/asio/io_context.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>

namespace velmo { namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class ListTableTest : public testing::Test {
  protected:
    MessageRecord message(std::uint32_t uid, std::int64_t date, std::string path = "INBOX") const {
        MessageRecord record;
        record.accountID = account_;
        record.mailboxPath = std::move(path);
        record.uid = uid;
        record.threadKey = "uid:" + std::to_string(uid);
        record.date = dateFromUnixMilliseconds(date);
        return record;
    }

    void insert(std::vector<MessageRecord> records) { context_->messages.insert(records); }

    std::vector<std::int64_t> uidsOf(const MessageListQuery& query,
                                     MessageWalk::Direction direction = MessageWalk::Direction::older) {
        std::vector<std::int64_t> uids;
        auto walk = context_->lists.walk(query, direction);
        while (const auto place = walk.next()) uids.push_back(context_->messages.find(place->id)->uid);
        return uids;
    }

    std::vector<std::int64_t> search(const char* text) {
        std::vector<std::int64_t> uids;
        const SearchTerms terms(text);
        for (const auto id : context_->texts.search(terms, 1'000).value_or(std::vector<std::int64_t>{-1})) {
            const auto found = context_->messages.find(id);
            uids.push_back(found ? found->uid : 0);
        }
        return uids;
    }

    /// What SQLite says it does for a query, step by step.
    std::string plan(const std::string& sql) {
        std::string steps;
        for (auto row = raw_.query("EXPLAIN QUERY PLAN " + sql); row.step();)
            steps += row.column<std::string>(3) + '\n';
        return steps;
    }

    boost::asio::io_context main_;
    std::unique_ptr<ModelContext> context_ = ModelContainer::temporary(main_.get_executor())->makeContext();
    sqlite::Database raw_{context_->container()->file()};
    const UUID account_ = UUID::random();
    const MailboxKey inbox_{account_, "INBOX"};
    const MailboxKey other_{account_, "Other"};
};

TEST_F(ListTableTest, PageQueriesReadNothingButTheirRange) {
    // Each of these must be answered from an index in its order.
    for (const char* condition : {"messagesByDate WHERE isOther = ?", "unreadMessages WHERE isSeen = 0 AND isOther = ?",
                                  "messagesWithoutBody WHERE hasBody = 0 AND hasBody = ?",
                                  "labelledMessages WHERE labelsJoined <> '' AND labelsJoined = ? AND isSeen = ?"}) {
        for (const char* range :
             {"date = ? AND id < ? ORDER BY id DESC LIMIT ?", "date = ? AND id > ? ORDER BY id LIMIT ?",
              "date < ? AND date >= ? ORDER BY date DESC, id DESC LIMIT ?",
              "date > ? AND date >= ? ORDER BY date, id LIMIT ?"}) {
            const auto steps = plan(std::string("SELECT date, id FROM messages INDEXED BY ") + condition +
                                    " AND accountID = ? AND mailboxPath = ? AND " + range);
            const bool isSameDate = std::string_view(range).starts_with("date = ");
            EXPECT_THAT(steps, HasSubstr(isSameDate ? "=? AND date=? AND rowid" : "=? AND date>?")) << condition;
            EXPECT_THAT(steps, Not(HasSubstr("TEMP B-TREE"))) << condition << ' ' << range;
        }
    }
    for (const char* order : {"ORDER BY date DESC, id DESC LIMIT ?", "AND date >= ? ORDER BY date, id"}) {
        const auto steps = plan(std::string("SELECT * FROM messages WHERE accountID = ? AND threadKey = ? ") + order);
        EXPECT_THAT(steps, HasSubstr("USING INDEX messagesByThread"));
        EXPECT_THAT(steps, Not(HasSubstr("TEMP B-TREE"))) << order;
    }
    EXPECT_THAT(plan("SELECT min(labelsJoined) FROM messages WHERE accountID = ? AND mailboxPath = ? AND "
                     "labelsJoined <> '' AND labelsJoined > ?"),
                HasSubstr("USING COVERING INDEX labelledMessages (accountID=? AND mailboxPath=? AND labelsJoined>?)"));
    EXPECT_THAT(plan("SELECT id FROM messages WHERE messageID = ?"), HasSubstr("messagesByMessageID"));
}

TEST_F(ListTableTest, AWalkMeetsEveryMessageOnceInBothDirections) {
    // Many of one moment, in halves and mailboxes of unlike size, so that streams end and are read on at odd places.
    std::mt19937 random(7);
    std::vector<MessageRecord> records;
    for (std::uint32_t uid = 1; uid <= 700; ++uid) {
        records.push_back(
            message(uid, static_cast<std::int64_t>(random() % 60), random() % 5 == 0 ? "Other" : "INBOX"));
        records.back().categoryRaw = random() % 9 == 0 ? "promotions" : "";
        records.back().isSeen = random() % 2 == 0;
    }
    insert(records);
    std::ranges::stable_sort(records, std::greater(), [](const auto& r) { return std::pair(r.date, r.uid); });
    for (const bool onlyUnread : {false, true}) {
        MessageListQuery query({inbox_, other_}, 10);
        query.show = onlyUnread ? MessageListQuery::Show::unread : MessageListQuery::Show::all;
        std::vector<std::int64_t> expected;
        for (const auto& r : records) {
            if (!onlyUnread || !r.isSeen) expected.push_back(r.uid);
        }
        EXPECT_EQ(uidsOf(query), expected);
        std::ranges::reverse(expected);
        EXPECT_EQ(uidsOf(query, MessageWalk::Direction::newer), expected);
    }
}

TEST_F(ListTableTest, TheHalvesOfAnInboxFollowTheCategories) {
    std::vector<MessageRecord> records{message(1, 1), message(2, 2)};
    records[1].categoryRaw = "of a later version";
    for (const auto category : allCategories) {
        records.push_back(message(static_cast<std::uint32_t>(records.size() + 1), 3));
        records.back().categoryRaw = rawText(category);
    }
    insert(records);
    MessageListQuery query({inbox_});
    query.focus = InboxFocus::important;
    EXPECT_THAT(uidsOf(query), ElementsAre(5, 2, 1)); // security, and what has no category
    query.focus = InboxFocus::other;
    EXPECT_THAT(uidsOf(query), ElementsAre(8, 7, 6, 4, 3));
}

TEST_F(ListTableTest, LabelsAreWholeKeysInAnyCombination) {
    std::vector<MessageRecord> records;
    for (const char* labels : {"work", "cat:updates|work", "homework", "work|a'b", "", "wor", "work "}) {
        records.push_back(message(static_cast<std::uint32_t>(records.size() + 1), 10));
        records.back().labelsJoined = labels;
    }
    records[0].mailboxPath = "Other";
    records[1].isSeen = true;
    insert(records);
    MessageListQuery query({inbox_, other_});
    query.label = "work";
    EXPECT_THAT(uidsOf(query), ElementsAre(4, 2, 1));
    query.show = MessageListQuery::Show::unread;
    EXPECT_THAT(uidsOf(query), ElementsAre(4, 1));
    query.label = "";
    EXPECT_THAT(uidsOf(query), IsEmpty());
}

TEST_F(ListTableTest, TheIndexOfTextsFollowsTheMessages) {
    auto first = message(1, 1);
    first.subject = "Grüße aus Zürich";
    first.fromName = "Émile Σοφία";
    auto second = message(2, 2);
    second.subject = "Release notes";
    second.fromEmail = "anna.berg@example.org";
    insert({first, second, message(3, 3)});
    EXPECT_THAT(search("zurich"), IsEmpty());
    EXPECT_EQ(context_->texts.unindexed(10).size(), 3U);
    EXPECT_EQ(context_->texts.indexNext(2), 1U);
    EXPECT_EQ(context_->texts.indexNext(2), 0U);
    EXPECT_EQ(context_->texts.indexNext(2), 0U);
    EXPECT_THAT(search("ZÜRICH emile"), ElementsAre(1));
    EXPECT_THAT(search("σοφία"), ElementsAre(1));
    EXPECT_THAT(search("berg rel"), ElementsAre(2));
    EXPECT_THAT(search("berg AND \"rel* OR NEAR("), IsEmpty());
    EXPECT_EQ(context_->texts.search(SearchTerms("a an"), 1'000), std::nullopt);

    MessageChange change;
    change.snippet = "tomorrow";
    context_->messages.change(*context_->texts.search(SearchTerms("berg"), 1'000)->begin(), change);
    EXPECT_THAT(search("tomorrow"), ElementsAre(2));
    change.snippet = "today";
    context_->messages.change(*context_->texts.search(SearchTerms("berg"), 1'000)->begin(), change);
    EXPECT_THAT(search("tomorrow"), IsEmpty());
    EXPECT_THAT(search("today release"), ElementsAre(2));
}

TEST_F(ListTableTest, AnIndexOfDeletedMessagesIsMadeAnew) {
    std::vector<MessageRecord> records;
    for (std::uint32_t uid = 1; uid <= 6'000; ++uid) records.push_back(message(uid, uid));
    records.back().subject = "kept";
    insert(records);
    while (context_->texts.indexNext(2'000) > 0) {
    }
    context_->texts.dropStaleIndex();
    EXPECT_THAT(search("kept"), ElementsAre(6'000));
    raw_.execute("DELETE FROM messages WHERE uid < 5990");
    context_->texts.dropStaleIndex();
    EXPECT_THAT(search("kept"), IsEmpty());
    EXPECT_EQ(context_->texts.indexNext(100), 0U);
    EXPECT_THAT(search("kept"), ElementsAre(6'000));
}

TEST_F(ListTableTest, WordsAreReadAsTheIndexReadsThem) {
    // The reader of words stands in for the index; both must find the same.
    const char* texts[]{"plain words, and more",
                        "Ünïcödé é",
                        "Straße STRASSE",
                        "naïve cafe\u0301 noir",
                        "Самовар нашёлся",
                        "合唱団の写真",
                        "a1b2 3.5 x_y",
                        "İstanbul ŞİŞLİ Đorđe",
                        "ﬁne ½ ②",
                        "emoji 👋🏽 hand"};
    std::vector<MessageRecord> records;
    for (const char* text : texts) {
        records.push_back(message(static_cast<std::uint32_t>(records.size() + 1), 1));
        records.back().snippet = text;
    }
    context_->messages.insert(records);
    while (context_->texts.indexNext(100) > 0) {
    }
    for (const char* query : {"words",   "unicode", "strasse", "straße", "cafe",  "naive noir", "café",     "нашёлся",
                              "нашелся", "САМОВАР", "合唱",    "写真",   "a1b2",  "x_y",        "istanbul", "sisli",
                              "đorđe",   "dorde",   "fine",    "ﬁne",    "emoji", "hand emoji"}) {
        const SearchTerms terms(query);
        std::vector<std::int64_t> read;
        for (const auto& record : records) {
            if (context_->texts.matches(record.id, terms)) read.push_back(record.id);
        }
        EXPECT_EQ(context_->texts.search(terms, 1'000).value_or(read), read) << query;
    }
}

}}
