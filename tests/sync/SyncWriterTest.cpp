#include "sync/SyncWriter.h"

#include "base/Runtime.h"
#include "sync/Attachments.h"
#include "sync/MessageRecordMaker.h"
#include "sync/SyncWriterSamples.h"

#include <array>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace velmo { namespace {

using test::delta;
using test::listed;
using test::syncedMessage;

class SyncWriterTest : public testing::Test {
  protected:
    SyncWriterTest() { writer().upsertMailboxes(account_, {listed("INBOX"), listed("Sent")}); }

    RecordWriter& writer() { return fixture_.writer; }
    ModelContext& context() { return *fixture_.context; }
    MailboxRecord inbox() { return *context().mailboxes.find(inbox_); }

    AppliedDelta apply(MailboxDelta change) { return writer().apply(std::move(change), inbox_, LabelNewMail::yes); }

    /// Every record of the inbox, by UID.
    std::vector<MessageRecord> records() {
        std::vector<MessageRecord> all;
        for (const auto uid : context().messages.uids(inbox_)) all.push_back(*context().messages.find(inbox_, uid));
        return all;
    }

    void saveBody(const MessageRecord& record) {
        fixture_.files.saveBody("body", BodyKey::of(record));
        MessageChange change;
        change.hasBody = true;
        context().messages.change(record.id, change);
    }

    test::TemporaryDirectory directory_;
    boost::asio::io_context main_;
    test::WriterFixture fixture_{ModelContainer::temporary(main_.get_executor()), directory_ / "Messages"};
    const UUID account_ = UUID::random();
    const MailboxKey inbox_{account_, "INBOX"};
};

TEST_F(SyncWriterTest, AFirstDeltaFillsTheMailbox) {
    const auto applied = apply(delta({syncedMessage(5), syncedMessage(9), syncedMessage(7, {"\\SEEN"})}, 3, 10));
    EXPECT_FALSE(applied.countsAsNews);
    ASSERT_EQ(applied.unseen.size(), 2U);
    EXPECT_EQ(applied.unseen[0].uid, 9U);
    EXPECT_EQ(inbox().oldestSyncedUID, 5);
    EXPECT_EQ(inbox().unreadCount, 2);
    EXPECT_EQ(inbox().totalCount, 3);
    EXPECT_EQ(inbox().lastSynced, fixture_.clock->now());
    EXPECT_EQ(writer().syncState(inbox_), (SyncState{1, 10, 10, 5, {5, 7, 9}, {}, {}, 0, 0, false}));

    EXPECT_TRUE(apply(delta({syncedMessage(10)}, 4, 11)).countsAsNews);
    EXPECT_EQ(inbox().oldestSyncedUID, 5);
    // Nothing is known of the mailbox: nothing happens.
    EXPECT_TRUE(
        writer().apply(delta({syncedMessage(1)}, 1, 2), {account_, "Unlisted"}, LabelNewMail::no).unseen.empty());
    EXPECT_EQ(context().messages.count({account_, "Unlisted"}), 0);
    EXPECT_EQ(writer().syncState({account_, "Unlisted"}), SyncState());
}

TEST_F(SyncWriterTest, AFillingBeginsAnewAndAnnouncesOnlyWhatIsNew) {
    apply(delta({syncedMessage(5)}, 1, 10));
    auto gone = delta({}, 0, 10);
    gone.vanished = {5};
    apply(gone);
    auto filling = delta({syncedMessage(8), syncedMessage(111), syncedMessage(112)}, 300, 310);
    filling.isFilling = true;
    const auto applied = apply(filling);
    EXPECT_EQ(inbox().oldestSyncedUID, 8) << "what is older is not held, and has to be found";
    ASSERT_EQ(applied.unseen.size(), 2U) << "what was there before the last sync is no news";
    EXPECT_EQ(applied.unseen.back().uid, 111U);
}

TEST_F(SyncWriterTest, AnAbsentItemChangesNothingAndAHeadIsMadeUpFor) {
    SyncedMessage bare;
    bare.uid = 7;
    bare.hasFlags = false;
    apply(delta({syncedMessage(5, {"\\Seen", "\\Flagged"}), bare}, 2, 10));
    EXPECT_EQ(writer().syncState(inbox_).headless, std::vector<std::uint32_t>{7});
    auto again = syncedMessage(5);
    again.hasFlags = false;
    apply(delta({again, bare}, 2, 10));
    EXPECT_TRUE(context().messages.find(inbox_, 5)->isFlagged);
    EXPECT_EQ(context().messages.count(inbox_), 2);
    apply(delta({syncedMessage(7)}, 2, 10));
    EXPECT_EQ(context().messages.find(inbox_, 7)->subject, "Message 7");
    EXPECT_THAT(writer().syncState(inbox_).headless, testing::IsEmpty());
    EXPECT_EQ(context().messages.count(inbox_), 2);
}

TEST_F(SyncWriterTest, ADeltaAppliedTwiceChangesNothing) {
    apply(delta({syncedMessage(1), syncedMessage(2), syncedMessage(3)}, 3, 4));
    auto change = delta({syncedMessage(4, {"\\Flagged", "$Work"})}, 3, 5);
    change.flagChanges = {{1, {"\\Seen"}}, {3, {}}, {77, {"\\Seen"}}};
    change.vanished = {2, 88};
    apply(change);

    // What only the client knows survives as well.
    MessageChange own;
    own.summary = std::optional<std::string>("mine");
    own.labelsJoined = "mine";
    context().messages.change(records().back().id, own);

    const auto mailboxBefore = inbox();
    const auto before = records();
    const auto versionOf = [&](sqlite::Database& database) {
        auto row = database.query("PRAGMA data_version");
        return row.step() ? row.column<std::int64_t>(0) : 0;
    };
    sqlite::Database observer(fixture_.container->file());
    const auto version = versionOf(observer);
    EXPECT_TRUE(apply(change).unseen.empty());
    EXPECT_EQ(versionOf(observer), version);
    EXPECT_EQ(inbox(), mailboxBefore);
    EXPECT_EQ(records(), before);
    ASSERT_EQ(before.size(), 3U);
    EXPECT_TRUE(before[0].isSeen);
    EXPECT_EQ(before[2].otherFlags, std::vector<std::string>{"$Work"});
}

TEST_F(SyncWriterTest, AMessageToldTwiceInOneDeltaIsOneMessage) {
    apply(delta({syncedMessage(1), syncedMessage(1, {"\\Seen"}), syncedMessage(2)}, 2, 3));
    ASSERT_EQ(records().size(), 2U);
    EXPECT_TRUE(records()[0].isSeen);
}

TEST_F(SyncWriterTest, AResetStartsOver) {
    apply(delta({syncedMessage(1), syncedMessage(2), syncedMessage(3)}, 3, 4));
    const auto old = records();
    saveBody(old[0]);
    auto change = delta({syncedMessage(2, {"\\Seen"}), syncedMessage(8)}, 2, 9);
    change.isReset = true;
    change.state.uidValidity = 2;
    EXPECT_FALSE(apply(change).countsAsNews);
    ASSERT_EQ(records().size(), 2U);
    EXPECT_EQ(records()[0].uidValidity, 2);
    EXPECT_GT(records()[0].id, old[2].id);
    EXPECT_EQ(inbox().oldestSyncedUID, 2);
    // Not the larger of old and new.
    EXPECT_EQ(inbox().unreadCount, 1);
    EXPECT_FALSE(fixture_.files.loadBody(BodyKey::of(old[0])));

    change.newMessages.clear();
    change.state.uidValidity = 3;
    apply(change);
    EXPECT_TRUE(records().empty());
    EXPECT_EQ(inbox().oldestSyncedUID, 0);
}

TEST_F(SyncWriterTest, OnlyTheInboxCountsItsUnreadMessages) {
    writer().upsertMailboxes(account_, {listed("INBOX", 9, 5), listed("Sent", 9, 5)});
    apply(delta({syncedMessage(1)}, 9, 2));
    writer().apply(delta({syncedMessage(1)}, 9, 2), {account_, "Sent"}, LabelNewMail::no);
    EXPECT_EQ(inbox().unreadCount, 5);
    EXPECT_EQ(context().mailboxes.find({account_, "Sent"})->unreadCount, 5);
    const auto sent = writer().apply(delta({syncedMessage(2)}, 10, 3), {account_, "Sent"}, LabelNewMail::no);
    EXPECT_FALSE(sent.countsAsNews);
    EXPECT_EQ(context().mailboxes.find({account_, "Sent"})->unreadCount, 5);
    std::vector<SyncedMessage> many;
    for (std::uint32_t uid = 2; uid <= 8; ++uid) many.push_back(syncedMessage(uid));
    apply(delta(many, 9, 9));
    EXPECT_EQ(inbox().unreadCount, 8);
}

TEST_F(SyncWriterTest, BodiesGoOnlyAfterTheCommit) {
    apply(delta({syncedMessage(1), syncedMessage(2)}, 2, 3));
    const auto all = records();
    saveBody(all[0]);
    saveBody(all[1]);
    auto change = delta({}, 1, 3);
    change.vanished = {1};
    // The commit is refused, so record and body must both stay.
    sqlite::Database raw(fixture_.container->file());
    raw.execute("CREATE TRIGGER refuse BEFORE INSERT ON mailboxes BEGIN SELECT raise(ABORT, 'no'); END");
    EXPECT_THROW(apply(change), sqlite::SQLiteError);
    EXPECT_EQ(records().size(), 2U);
    EXPECT_TRUE(fixture_.files.loadBody(BodyKey::of(all[0])));
    raw.execute("DROP TRIGGER refuse");
    apply(change);
    EXPECT_FALSE(fixture_.files.loadBody(BodyKey::of(all[0])));
    EXPECT_TRUE(fixture_.files.loadBody(BodyKey::of(all[1])));
}

TEST_F(SyncWriterTest, TheBackfillMovesItsMarkDown) {
    apply(delta({syncedMessage(50)}, 9, 51));
    writer().insertOlder({syncedMessage(30), syncedMessage(20)}, inbox_, 1, LabelNewMail::no);
    EXPECT_EQ(inbox().oldestSyncedUID, 20);
    writer().insertOlder({}, inbox_, 1, LabelNewMail::no);
    writer().insertOlder({syncedMessage(40)}, inbox_, 1, LabelNewMail::no);
    EXPECT_EQ(inbox().oldestSyncedUID, 20);
    // Fetched before the mailbox was numbered anew.
    writer().insertOlder({syncedMessage(10)}, inbox_, 7, LabelNewMail::no);
    writer().insertMessages({syncedMessage(11)}, inbox_, 7, LabelNewMail::no);
    writer().insertMessages({syncedMessage(12)}, inbox_, 1, LabelNewMail::no);
    EXPECT_EQ(context().messages.uids(inbox_), (std::vector<std::uint32_t>{12, 20, 30, 40, 50}));
    EXPECT_EQ(inbox().oldestSyncedUID, 20);
}

TEST_F(SyncWriterTest, AListingIsMirrored) {
    apply(delta({syncedMessage(1)}, 1, 2));
    const MailboxKey work{account_, "Work"};
    writer().upsertMailboxes(account_, {listed("Inbox", 4, 2), listed("Sent"), listed("Work")});
    EXPECT_EQ(writer().mailboxEntries(account_), (std::vector<MailboxEntry>{{"INBOX", MailboxRole::inbox, true},
                                                                            {"Sent", MailboxRole::sent, true},
                                                                            {"Work", MailboxRole::other, true}}));
    EXPECT_EQ(inbox().unreadCount, 2);
    EXPECT_EQ(inbox().uidNext, 2);
    EXPECT_EQ(writer().syncState({account_, "inbox"}).knownUIDs.size(), 1U);

    writer().apply(delta({syncedMessage(1)}, 1, 2), work, LabelNewMail::no);
    const auto record = *context().messages.find(work, 1);
    saveBody(record);
    writer().upsertMailboxes(account_, {});
    EXPECT_TRUE(context().mailboxes.find(work));
    writer().upsertMailboxes(account_, {listed("INBOX"), listed("Work2")});
    EXPECT_FALSE(context().mailboxes.find(work));
    EXPECT_FALSE(context().messages.find(record.id));
    EXPECT_FALSE(fixture_.files.loadBody(BodyKey::of(record)));
    EXPECT_EQ(records().size(), 1U);
}

TEST_F(SyncWriterTest, AnOlderAnswerTakesNoChangeOfThePersonBack) {
    using Flag = LocalChanges::Flag;
    const auto changes = std::make_shared<LocalChanges>();
    apply(delta({syncedMessage(1), syncedMessage(2), syncedMessage(3)}, 3, 4));
    const auto modSeq = inbox().highestModSeq;
    const auto answer = [&](std::int64_t value, std::set<std::string> flags, const LocalChanges::Reading& reading) {
        auto change = delta({}, 3, 4);
        change.state.highestModSeq = value;
        change.flagChanges = {{1, std::move(flags)}, {2, {"\\Answered"}}};
        writer().apply(std::move(change), inbox_, LabelNewMail::no, &reading);
    };

    // Asked before the server heard of it.
    const auto early = changes->beginReading();
    changes->changeFlag(inbox_, 1, Flag::seen, true);
    const auto between = changes->beginReading();
    answer(20, {"\\flagged"}, *early);
    EXPECT_TRUE(records()[0].isSeen && records()[0].isFlagged && records()[1].isAnswered);
    EXPECT_EQ(inbox().highestModSeq, modSeq) << "asked again from there";
    changes->settleFlags(inbox_, std::array{1U}, Flag::seen);
    changes->changeFlag(inbox_, 1, Flag::flagged, false);
    changes->settleFlags(inbox_, std::array{1U}, Flag::flagged);
    answer(21, {"\\FLAGGED"}, *between);
    EXPECT_TRUE(records()[0].isSeen && !records()[0].isFlagged);
    EXPECT_EQ(inbox().highestModSeq, modSeq);
    // Whoever asks afterwards is told the truth.
    answer(22, {}, *changes->beginReading());
    EXPECT_FALSE(records()[0].isSeen);
    EXPECT_EQ(inbox().highestModSeq, 22);

    // The same for counts, and for messages that are hidden.
    const auto listing = changes->beginReading();
    const auto count = [&](const LocalChanges::Reading& reading) {
        writer().upsertMailboxes(account_, {listed("INBOX", 3, 30), listed("Sent")}, &reading);
        return inbox().unreadCount;
    };
    EXPECT_EQ(count(*early), 3);
    EXPECT_EQ(count(*listing), 30);
    changes->beginLeaving(inbox_, std::array{2U});
    writer().upsertMailboxes(account_, {listed("INBOX", 3, 1), listed("Sent")}, nullptr);
    answer(22, {}, *listing);
    EXPECT_EQ(inbox().unreadCount, 2) << "without the one that is leaving";
    EXPECT_EQ(count(*changes->beginReading()), 2);
    changes->endLeaving(inbox_, std::array{2U});
    EXPECT_EQ(count(*listing), 2);
    EXPECT_EQ(count(*changes->beginReading()), 30);
}

TEST_F(SyncWriterTest, ARemovedAccountStaysRemoved) {
    const UUID other = UUID::random();
    writer().upsertMailboxes(other, {listed("INBOX")});
    apply(delta({syncedMessage(1)}, 1, 2));
    saveBody(records()[0]);
    writer().deleteAccount(account_);
    // What was on its way.
    writer().upsertMailboxes(account_, {listed("INBOX")});
    apply(delta({syncedMessage(2)}, 1, 3));
    EXPECT_TRUE(writer().mailboxEntries(account_).empty());
    EXPECT_EQ(context().messages.count(inbox_), 0);
    EXPECT_EQ(fixture_.files.storedBytes(), 0);
    EXPECT_EQ(writer().mailboxEntries(other).size(), 1U);
}

TEST_F(SyncWriterTest, ABrokenRecordEndsTheOperation) {
    apply(delta({syncedMessage(1)}, 1, 2));
    sqlite::Database(fixture_.container->file()).execute("UPDATE messages SET uid = 4294967296");
    EXPECT_THROW(writer().syncState(inbox_), ModelStoreError);
}

TEST(MessageRecordMakerTest, ThreadsAreFoundInOrderOfPreference) {
    auto message = syncedMessage(4);
    message.envelope->messageID = "";
    message.envelope->inReplyTo = "";
    EXPECT_EQ(threadKey(message, "INBOX"), "uid:INBOX:4");
    message.envelope->messageID = "<self@x>";
    EXPECT_EQ(threadKey(message, "INBOX"), "<self@x>");
    message.envelope->inReplyTo = "<parent@x>";
    EXPECT_EQ(threadKey(message, "INBOX"), "<parent@x>");
    message.references = {"<root@x>", "<parent@x>"};
    EXPECT_EQ(threadKey(message, "INBOX"), "<root@x>");
    message.gmailThreadID = 18'000'000'000'000'000'000ULL;
    EXPECT_EQ(threadKey(message, "INBOX"), "gm:18000000000000000000");
    message = syncedMessage(5);
    message.envelope.reset();
    EXPECT_EQ(threadKey(message, "INBOX"), "uid:INBOX:5");
}

TEST(MessageRecordMakerTest, NewMailIsCategorised) {
    auto message = syncedMessage(1);
    message.envelope->subject = "Your invoice";
    message.snippet = "Dear customer";
    const MailboxKey mailbox{UUID::random(), "INBOX"};
    auto record = makeMessageRecord(message, mailbox, 3, LabelNewMail::yes);
    EXPECT_EQ(record.categoryRaw, "receipts");
    EXPECT_EQ(record.labelsJoined, "cat:receipts");
    EXPECT_EQ(record.snippet, "Dear customer");
    record = makeMessageRecord(message, mailbox, 3, LabelNewMail::no);
    EXPECT_EQ(record.categoryRaw, "receipts");
    EXPECT_EQ(record.labelsJoined, "");
}

TEST(AttachmentsTest, PartsThatAreNoTextAreAttachments) {
    const auto part = [](const char* type, const char* subtype, auto&& change) {
        IMAPBodyPart result;
        result.type = type;
        result.subtype = subtype;
        change(result);
        return result;
    };
    struct {
        IMAPBodyPart part;
        const char* name; ///< null: no attachment
    } const cases[] = {
        {part("text", "plain", [](auto&) {}), nullptr},
        {part("text", "plain", [](auto& p) { p.disposition = "attachment"; }), "attachment"},
        {part("text", "csv",
              [](auto& p) {
                  p.disposition = "inline";
                  p.dispositionParameters["filename"] = "a.csv";
                  p.parameters["name"] = "b.csv";
              }),
         "a.csv"},
        {part("text", "csv", [](auto& p) { p.parameters["name"] = "=?utf-8?q?=C3=BC.csv?="; }), "ü.csv"},
        {part("image", "png", [](auto& p) { p.contentID = "logo"; }), nullptr},
        {part("image", "png", [](auto&) {}), "attachment"},
        {part("image", "png",
              [](auto& p) {
                  p.contentID = "logo";
                  p.disposition = "attachment";
              }),
         "attachment"},
        {part("multipart", "mixed", [](auto&) {}), nullptr},
        {part("message", "rfc822", [](auto&) {}), "attachment"},
    };
    for (const auto& [tested, name] : cases) {
        EXPECT_EQ(isAttachment(tested), name != nullptr) << tested.type;
        const auto found = attachments(IMAPBodyStructure::single(tested));
        ASSERT_EQ(found.size(), name != nullptr ? 1U : 0U) << tested.type;
        if (name != nullptr) {
            EXPECT_EQ(found[0].filename, name);
            EXPECT_EQ(found[0].mimeType, tested.type + "/" + tested.subtype);
        }
    }
}

TEST(SyncWriterExecutorTest, OperationsRunOffTheMainExecutorInOrder) {
    test::TemporaryDirectory directory;
    Runtime runtime;
    const auto container = ModelContainer::temporary(runtime.executors().main);
    SyncWriter writer(container, MessageFiles(directory / "Messages"), std::make_shared<ManualClock>(),
                      runtime.executors().background);
    const auto account = UUID::random();
    int told = 0;
    const auto connection = container->onChange([&](const ModelChanges&) { ++told; });
    runtime.run([&]() -> Async<void> {
        std::vector mailboxes{listed("INBOX")};
        co_await writer.upsertMailboxes(account, std::move(mailboxes));
        for (std::uint32_t uid = 1; uid <= 5; ++uid) {
            auto change = delta({syncedMessage(uid)}, uid, uid + 1);
            const auto applied = co_await writer.apply(std::move(change), account, "inbox", LabelNewMail::no);
            EXPECT_EQ(applied.unseen.size(), 1U);
        }
        const auto state = co_await writer.syncState(account, "INBOX");
        EXPECT_EQ(state.knownUIDs.size(), 5U);
        std::vector older{syncedMessage(1)};
        co_await writer.insertOlder(std::move(older), account, "INBOX", 1, LabelNewMail::no);
        co_await writer.deleteAccount(account);
        const auto entries = co_await writer.mailboxEntries(account);
        EXPECT_TRUE(entries.empty());
    });
    EXPECT_GT(told, 0);
}

}}
