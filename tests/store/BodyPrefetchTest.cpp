#include "store/BodyPrefetch.h"

#include "store/BodyRig.h"
#include "support/ServerTest.h"

#include <gtest/gtest.h>

namespace velmo::test { namespace {

/// The message of a day in March, padded to so many bytes.
std::string messageOf(int day, std::size_t size = 0) {
    const std::string number = std::to_string(day);
    std::string message = "Message-ID: <m" + number + "@x>\r\nDate: " + number +
                          " Mar 2026 10:00:00 +0000\r\n\r\nwalrus" + number + "\r\n";
    if (size > message.size()) message.insert(message.size() - 2, size - message.size(), '.');
    return message;
}

class BodyPrefetchTest : public WithServers<> {
  protected:
    void prepare() override {
        mail_.emplace();
        downloads_ = std::make_shared<BodyDownloads>(rig().runtime.executors().main);
        restart();
    }

    StoreRig& rig() { return mail_->rig; }
    const UUID& account() { return mail_->rig.account.id; }

    void restart(BodyPrefetchLimits limits = {}) {
        prefetch_ = std::make_shared<BodyPrefetch>(rig().environment, rig().engines, downloads_, limits);
    }

    void prefetch() {
        prefetch_->start(rig().account);
        rig().run([this] { return prefetch_->finished(account()); });
        EXPECT_FALSE(prefetch_->isRunning(account()));
        EXPECT_TRUE(downloads_->messages->empty());
    }

    /// The UIDs of the inbox with their body. Each must be in the files and in the index.
    std::vector<std::int64_t> held() {
        std::vector<std::int64_t> uids;
        const auto indexed = rig().index.allMessageIDs();
        for (const auto& record : rig().held("INBOX")) {
            if (!record.hasBody) continue;
            uids.insert(uids.begin(), record.uid);
            const auto file = mail_->file(record);
            EXPECT_TRUE(file && file->size() == static_cast<std::size_t>(record.size)) << record.uid;
            EXPECT_TRUE(indexed.contains(record.messageID.value_or(""))) << record.uid;
        }
        return uids;
    }

    std::optional<BodyRig> mail_;
    std::shared_ptr<BodyDownloads> downloads_;
    std::shared_ptr<BodyPrefetch> prefetch_;
};

using UIDs = std::vector<std::int64_t>;

TEST_F(BodyPrefetchTest, FillsAllMailboxesButJunkAndTrash) {
    mail_->servers.fill(70);
    mail_->servers.fill("Work/Plans", 30, 2);
    mail_->servers.fill("Junk", 3, 3);
    mail_->servers.fill("Trash", 3, 4);
    mail_->pass();
    EXPECT_EQ(prefetch_->bodiesMissing(account()), 100);
    prefetch();
    EXPECT_EQ(prefetch_->bodiesMissing(account()), 0);
    EXPECT_EQ(prefetch_->bodiesHeld(account()), 100);
    for (const char* path : {"INBOX", "Work/Plans", "Junk", "Trash"}) {
        const bool isWanted = path[0] == 'I' || path[0] == 'W';
        for (const auto& record : rig().held(path)) {
            EXPECT_EQ(record.hasBody, isWanted) << path;
            const auto size = isWanted ? record.size : 0;
            EXPECT_EQ(rig().environment.files.bodyFileSize(BodyKey::of(record)), size) << path;
        }
    }
    EXPECT_EQ(rig().index.search("token30").size(), 2U) << "one in each mailbox";
    const auto store = std::make_shared<BodyStore>(rig().environment, rig().engines, downloads_);
    rig().run([&] { return store->content(mail_->message(1, "Junk")); });
    EXPECT_TRUE(mail_->message(1, "Junk").hasBody) << "asked for, it comes from there as well";

    // Nothing is left to do; and what comes while it runs is brought as well.
    prefetch();
    mail_->servers.deliver(messageOf(1));
    prefetch_->start(rig().account);
    mail_->pass();
    prefetch();
    EXPECT_EQ(prefetch_->bodiesMissing(account()), 0);
    rig().run([this] { return rig().engines.disconnectAll(); });
    EXPECT_LE(mail_->fetches(), 70U / 4 + 30 / 4 + 4);
}

TEST_F(BodyPrefetchTest, LeavesLargeMessagesAndGoesOn) {
    mail_->servers.deliver(messageOf(1, 500));
    mail_->servers.deliver(messageOf(2, 501));
    mail_->pass();
    // More of them than a batch has room for.
    std::vector<MessageRecord> large(250, mail_->message(2));
    for (std::size_t i = 0; i < large.size(); ++i) {
        large[i].uid = static_cast<std::int64_t>(1000 + i);
        large[i].date += std::chrono::hours(1);
    }
    rig().context->messages.insert(large);
    BodyPrefetchLimits limits;
    limits.largestMessage = 500;
    restart(limits);
    prefetch();
    EXPECT_EQ(held(), UIDs{1});
    EXPECT_EQ(prefetch_->bodiesMissing(account()), 251);
}

TEST_F(BodyPrefetchTest, CompletesWhatACrashLeftUndone) {
    for (int i = 1; i <= 4; ++i) mail_->servers.deliver(messageOf(i));
    mail_->pass();
    prefetch();
    const auto fetchesBefore = mail_->fetches();
    // One has its file and no mark, one is not in the index either, one has lost its file as well.
    rig().index.removeAccount(account());
    rig().index.add("<m1@x>", account(), "walrus1");
    mail_->setHasBody(mail_->message(1), false);
    mail_->setHasBody(mail_->message(2), false);
    rig().environment.files.deleteBody(BodyKey::of(mail_->message(3)));
    const auto stored = rig().environment.files.storedBytes();
    { // and one was still being written
        const auto left = rig().environment.files.fileOf(BodyKey::of(mail_->message(4))).parent_path().parent_path();
        std::filesystem::create_directories(left / "incoming");
        writeFile(left / "incoming/.4.eml.abcdef", "half a message");
    }
    prefetch();
    EXPECT_EQ(rig().environment.files.storedBytes(), stored + stored / 3) << "of four bodies";
    EXPECT_EQ(held(), (UIDs{1, 2, 3, 4}));
    EXPECT_EQ(rig().index.search("walrus").size(), 4U);
    EXPECT_EQ(mail_->fetches(), fetchesBefore + 1);
}

TEST_F(BodyPrefetchTest, WhatIsOpenedTakesItsRoomAsWell) {
    for (int i = 1; i <= 2; ++i) mail_->servers.deliver(messageOf(i, 5'000));
    mail_->servers.deliver(messageOf(3, 20'000));
    mail_->pass();
    BodyPrefetchLimits limits;
    limits.largestMessage = 10'000;
    limits.mostStored = 20'000;
    limits.storedAfterEviction = 32'000;
    restart(limits);
    prefetch();
    EXPECT_EQ(held(), (UIDs{1, 2}));
    const auto store = std::make_shared<BodyStore>(rig().environment, rig().engines, downloads_);
    store->onStored = [this](std::size_t bytes) { prefetch_->noteStored(bytes); };
    rig().run([&] { return store->content(mail_->message(3)); });
    mail_->servers.deliver(messageOf(4));
    mail_->pass();
    prefetch();
    EXPECT_FALSE(mail_->message(1).hasBody);
    EXPECT_TRUE(mail_->message(3).hasBody);
}

TEST_F(BodyPrefetchTest, TheOldestGoWhenThereIsNoRoom) {
    for (int i = 1; i <= 6; ++i) mail_->servers.deliver(messageOf(i));
    mail_->pass();
    prefetch();
    const auto stored = rig().environment.files.storedBytes();
    const auto dateOf = [&](int uid) { return mail_->message(uid).date; };
    const std::string cutoff = "bodyCutoff." + account().text();

    BodyPrefetchLimits limits;
    limits.mostStored = stored;
    limits.storedAfterEviction = stored - mail_->message(1).size - mail_->message(2).size;
    restart(limits);
    mail_->setHasBody(mail_->message(6), false);
    prefetch();
    EXPECT_EQ(held().size(), 6U) << "there is just room for all";
    EXPECT_FALSE(rig().settings.date(cutoff));

    limits.mostStored = stored - 1;
    restart(limits);
    mail_->setHasBody(mail_->message(6), false);
    prefetch();
    EXPECT_EQ(held(), (UIDs{3, 4, 5, 6}));
    EXPECT_FALSE(mail_->file(mail_->message(2)));
    EXPECT_EQ(rig().settings.date(cutoff), dateOf(2));

    // What went isn't fetched straight back, and comes when it is asked for.
    prefetch();
    EXPECT_EQ(held().size(), 4U);
    EXPECT_EQ(prefetch_->bodiesMissing(account()), 0);
    const auto store = std::make_shared<BodyStore>(rig().environment, rig().engines, downloads_);
    rig().run([&] { return store->content(mail_->message(1)); });
    EXPECT_EQ(held().size(), 5U);

    // A later cut-off date stays.
    mail_->servers.deliver(messageOf(7));
    mail_->pass();
    rig().settings.setDate(cutoff, dateOf(4));
    prefetch();
    EXPECT_EQ(rig().settings.date(cutoff), dateOf(4));
    EXPECT_EQ(held(), (UIDs{4, 5, 6, 7}));
}

TEST_F(BodyPrefetchTest, AFailureEndsItUntilTheNextStart) {
    mail_->servers.deliver(messageOf(1));
    mail_->servers.deliver(messageOf(2));
    mail_->pass();
    MailAccount elsewhere = rig().account;
    elsewhere.incoming.port = 1;
    prefetch_->start(elsewhere);
    EXPECT_THROW(rig().run([this] { return prefetch_->finished(account()); }), UserError);
    EXPECT_FALSE(prefetch_->isRunning(account()));
    prefetch();
    EXPECT_EQ(held(), (UIDs{1, 2}));

    // One message of a slice that the server no longer has doesn't hold up the others.
    for (int i = 3; i <= 5; ++i) mail_->servers.deliver(messageOf(i));
    mail_->pass();
    auto expunged = mail_->message(4);
    expunged.uid = 77;
    rig().context->messages.insert(std::span(&expunged, 1));
    prefetch();
    EXPECT_EQ(held(), (UIDs{1, 2, 3, 4, 5}));
    EXPECT_EQ(prefetch_->bodiesMissing(account()), 1);
}

TEST_F(BodyPrefetchTest, AMessageThatTheServerCantGiveKeepsNoOtherBack) {
    for (int i = 1; i <= 12; ++i) mail_->servers.deliver(messageOf(i));
    mail_->pass();
    mail_->servers.damage("m6@");
    for (int run = 0; run < 4; ++run) {
        prefetch_->start(rig().account);
        try {
            rig().run([this] { return prefetch_->finished(account()); });
        } catch (const UserError&) {
            // The server may have closed the connection over it.
        }
    }
    EXPECT_EQ(held(), (UIDs{1, 2, 3, 4, 5, 7, 8, 9, 10, 11, 12}));
    EXPECT_EQ(prefetch_->bodiesMissing(account()), 1);
}

TEST_F(BodyPrefetchTest, CanBeCancelledAtAnyMoment) {
    mail_->servers.fill(60);
    mail_->pass();
    for (int turns = 0; turns < 60; turns += 4) {
        prefetch_->start(rig().account);
        int turn = 0;
        rig().eventually([&] { return ++turn > turns; });
        rig().run([this] { return prefetch_->cancel(account()); });
        EXPECT_FALSE(prefetch_->isRunning(account()));
        EXPECT_TRUE(downloads_->messages->empty());
    }
    // Dropped, it ends on its own.
    prefetch_->start(rig().account);
    restart();
    prefetch();
    EXPECT_EQ(prefetch_->bodiesMissing(account()), 0);
}

}}
