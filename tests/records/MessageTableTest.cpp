#include "records/ModelContext.h"

#include "platform/Settings.h"
#include "records/Labels.h"

#include <boost/asio/io_context.hpp>
#include <gtest/gtest.h>
#include <limits>

namespace velmo { namespace {

class MessageTableTest : public testing::Test {
  protected:
    MessageRecord message(std::uint32_t uid, std::int64_t date, std::string path = "INBOX") const {
        MessageRecord record;
        record.accountID = account_;
        record.mailboxPath = std::move(path);
        record.uid = uid;
        record.uidValidity = 1;
        record.threadKey = "uid:" + std::to_string(uid);
        record.date = dateFromUnixMilliseconds(date);
        return record;
    }

    std::vector<std::int64_t> insert(std::vector<MessageRecord> records) {
        context_->messages.insert(records);
        std::vector<std::int64_t> ids;
        for (const auto& record : records) ids.push_back(record.id);
        return ids;
    }

    /// The UIDs of all pages, one after the other.
    std::vector<std::int64_t> walk(MessageListQuery query) {
        std::vector<std::int64_t> uids;
        for (;;) {
            const auto page = context_->messages.page(query);
            EXPECT_LE(page.size(), query.limit);
            if (page.empty()) return uids;
            for (const auto& record : page) uids.push_back(record.uid);
            query.after = MessagePlace::of(page.back());
        }
    }

    boost::asio::io_context main_;
    std::unique_ptr<ModelContext> context_ = ModelContainer::temporary(main_.get_executor())->makeContext();
    const UUID account_ = UUID::random();
    const MailboxKey inbox_{account_, "INBOX"};
};

TEST_F(MessageTableTest, ARecordComesBackWhole) {
    auto record = message(std::numeric_limits<std::uint32_t>::max(), -86'400'000);
    record.messageID = "<a@b>";
    record.references = {"<1@x>", "with \"quotes\" \\ and \x01 control", ""};
    record.subject = "Grüße\n🙂";
    record.to = {{std::nullopt, "plain@x"}, {"Name, \"Q\"", "q@x"}, {"", "empty@x"}};
    record.cc = {{"C", "c@x"}};
    record.otherFlags = {"$Forwarded", "\\Deleted"};
    record.isFlagged = true;
    record.size = 5'000'000'000;
    record.hasAttachments = true;
    record.attachments = {{"é.pdf", "application/pdf", 4'294'967'296, "2.1", "id@x"},
                          {"b", "a/b", 0, "3", std::nullopt}};
    record.summary = "";
    record.labelsJoined = "cat:updates|mine";
    std::vector records{record};
    context_->messages.insert(records);
    EXPECT_GT(records[0].id, 0);
    EXPECT_EQ(context_->messages.find(records[0].id), records[0]);
    EXPECT_EQ(context_->messages.find(inbox_, std::numeric_limits<std::uint32_t>::max()), records[0]);
}

TEST_F(MessageTableTest, BrokenCellsReadAsEmpty) {
    const auto id = insert({message(1, 1)}).front();
    sqlite::Database raw(context_->container()->file());
    for (const char* cell : {"", "{", "[1, null, {\"name\": 3}, {\"size\": \"x\"}]", "{\"a\": 1}", "[\"\xFF\"]"}) {
        raw.query("UPDATE messages SET \"to\" = ?1, attachments = ?1, \"references\" = ?1, otherFlags = ?1").run(cell);
        const auto found = context_->messages.find(id);
        ASSERT_TRUE(found);
        EXPECT_TRUE(found->to.empty() && found->attachments.empty() && found->references.empty()) << cell;
    }
}

TEST_F(MessageTableTest, PagesMeetWithoutGapOrOverlap) {
    // Many messages of one moment, over two mailboxes and with others that do not belong.
    std::vector<MessageRecord> records;
    for (std::uint32_t uid = 1; uid <= 40; ++uid) {
        records.push_back(message(uid, uid / 10, uid % 3 == 0 ? "Other" : "INBOX"));
        records.back().isSeen = uid % 2 == 0;
        records.back().hasBody = uid > 20;
        auto elsewhere = records.back();
        elsewhere.mailboxPath = "Elsewhere";
        records.push_back(elsewhere);
    }
    insert(records);
    std::vector<std::int64_t> all;
    for (std::int64_t uid = 40; uid >= 1; --uid) all.push_back(uid);
    const auto only = [&](auto&& keeps) {
        auto kept = all;
        std::erase_if(kept, [&](std::int64_t uid) { return !keeps(uid); });
        return kept;
    };

    MessageListQuery query({inbox_, {account_, "Other"}, inbox_}, 7);
    EXPECT_EQ(walk(query), all);
    query.show = MessageListQuery::Show::unread;
    EXPECT_EQ(walk(query), only([](auto uid) { return uid % 2 == 1; }));
    query.show = MessageListQuery::Show::withoutBody;
    query.since = dateFromUnixMilliseconds(1);
    EXPECT_EQ(walk(query), only([](auto uid) { return uid <= 20 && uid >= 10; }));
    EXPECT_EQ(walk(MessageListQuery({{account_, "Other"}}, 1)), only([](auto uid) { return uid % 3 == 0; }));
    EXPECT_TRUE(walk(MessageListQuery({}, 5)).empty());
    EXPECT_EQ(context_->messages.count(inbox_), 27);
    EXPECT_EQ(context_->messages.unseenCount(inbox_), 13);
}

TEST_F(MessageTableTest, AnIdIsNeverGivenAgain) {
    const auto first = insert({message(1, 1), message(2, 2)});
    context_->messages.remove(inbox_, first);
    const auto second = insert({message(1, 1)});
    EXPECT_GT(second[0], first[1]);
    EXPECT_FALSE(context_->messages.find(first[0]));
    EXPECT_THROW(insert({message(1, 9)}), sqlite::SQLiteError);
}

TEST_F(MessageTableTest, OnlyWhatDiffersIsWritten) {
    const auto id = insert({message(1, 1)}).front();
    sqlite::Database observer(context_->container()->file());
    const auto version = [&] {
        auto row = observer.query("PRAGMA data_version");
        return row.step() ? row.column<std::int64_t>(0) : 0;
    };
    MessageChange change;
    change.isSeen = true;
    change.summary = std::optional<std::string>("short");
    auto before = version();
    EXPECT_TRUE(context_->messages.change(id, change));
    EXPECT_NE(version(), before);
    before = version();
    EXPECT_FALSE(context_->messages.change(id, change));
    EXPECT_EQ(version(), before);
    change.summary = std::optional<std::string>();
    EXPECT_TRUE(context_->messages.change(id, change));
    const auto record = context_->messages.find(id);
    EXPECT_TRUE(record->isSeen);
    EXPECT_FALSE(record->summary);
    EXPECT_FALSE(context_->messages.change(id + 1, change));
}

TEST_F(MessageTableTest, AUIDBeyond32BitsIsABrokenRecord) {
    insert({message(1, 1)});
    for (const char* uid : {"4294967296", "-1"}) {
        sqlite::Database(context_->container()->file()).execute(std::string("UPDATE messages SET uid = ") + uid);
        EXPECT_THROW(context_->messages.uids(inbox_), ModelStoreError) << uid;
    }
}

TEST_F(MessageTableTest, ThreadsSpanMailboxesOfOneAccount) {
    auto late = message(1, 20, "Sent");
    auto early = message(1, 10);
    auto stranger = message(2, 15);
    late.threadKey = early.threadKey = stranger.threadKey = "<root@x>";
    stranger.accountID = UUID::random();
    insert({late, early, stranger});
    const auto thread = context_->messages.thread(account_, "<root@x>");
    ASSERT_EQ(thread.size(), 2U);
    EXPECT_EQ(thread[0].mailboxPath, "INBOX");
    EXPECT_EQ(thread[1].mailboxPath, "Sent");
}

TEST_F(MessageTableTest, DefaultLabelsComeBackAndKeepTheirChanges) {
    seedDefaultLabels(*context_);
    auto mine = *context_->labels.find("cat:social");
    EXPECT_EQ(mine.color(), LabelColor::purple);
    EXPECT_EQ(mine.sortOrder, 3);
    mine.name = "Friends";
    mine.colorRaw = 77;
    context_->labels.store(mine);
    context_->labels.remove("cat:updates");
    seedDefaultLabels(*context_);
    EXPECT_EQ(context_->labels.all().size(), 6U);
    EXPECT_EQ(context_->labels.find("cat:social"), mine);
    EXPECT_EQ(mine.color(), LabelColor::graphite);
}

TEST_F(MessageTableTest, ExistingMailIsLabelledOnce) {
    std::vector<MessageRecord> records;
    for (std::uint32_t uid = 1; uid <= 1201; ++uid) {
        records.push_back(message(uid, 1));
        records.back().categoryRaw = uid % 2 == 0 ? "" : "updates";
        records.back().labelsJoined = "mine";
    }
    records[2].categoryRaw = "no category";
    const auto ids = insert(records);
    MemorySettings settings;
    labelExistingMail(*context_, settings);
    EXPECT_EQ(context_->messages.find(ids[0])->labelsJoined, "mine|cat:updates");
    EXPECT_EQ(context_->messages.find(ids[1])->labelsJoined, "mine");
    EXPECT_EQ(context_->messages.find(ids[2])->labelsJoined, "mine");
    EXPECT_EQ(context_->messages.find(ids[1200])->labelsJoined, "mine|cat:updates");

    MessageChange change;
    change.labelsJoined = "";
    context_->messages.change(ids[0], change);
    labelExistingMail(*context_, settings);
    EXPECT_EQ(context_->messages.find(ids[0])->labelsJoined, "");
}

}}
