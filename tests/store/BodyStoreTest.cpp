#include "store/BodyStore.h"

#include "store/AccountGone.h"
#include "store/BodyRig.h"
#include "store/SampleMail.h"
#include "support/ServerTest.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace velmo::test { namespace {

std::string messageOf(int number, const std::string& text) {
    return "Message-ID: <m" + std::to_string(number) +
           "@x>\r\nSubject: s\r\nDate: Thu, 5 Mar 2026 10:00:00 +0000\r\n\r\n" + text + "\r\n";
}

class BodyStoreTest : public WithServers<> {
  protected:
    void prepare() override {
        mail_.emplace();
        for (int i = 1; i <= 3; ++i) mail_->servers.deliver(messageOf(i, "walrus" + std::to_string(i)));
        mail_->pass();
        downloads_ = std::make_shared<BodyDownloads>(mail_->rig.runtime.executors().main);
        restart();
    }

    /// Forgets what is in memory.
    void restart() { store_ = std::make_shared<BodyStore>(mail_->rig.environment, mail_->rig.engines, downloads_); }

    MessageCache::EntryPointer open(const MessageRecord& record) {
        return mail_->rig.run([&] { return store_->content(record); });
    }

    std::optional<BodyRig> mail_;
    std::shared_ptr<BodyDownloads> downloads_;
    std::shared_ptr<BodyStore> store_;
};

TEST_F(BodyStoreTest, FetchesOnceAndKeepsWhatItFetched) {
    auto record = mail_->message(1);
    MessageChange change;
    change.snippet = "old";
    mail_->rig.context->messages.change(record.id, change);
    EXPECT_EQ(store_->cached(record), nullptr);

    MessageCache::EntryPointer first, second;
    Bytes source;
    mail_->rig.run([&]() -> Async<void> {
        const auto openFirst = [&]() -> Async<void> { first = co_await store_->content(record); };
        const auto openSecond = [&]() -> Async<void> { second = co_await store_->content(record); };
        const auto readSource = [&]() -> Async<void> { source = co_await store_->source(record); };
        const auto openBoth = [&] { return both(openFirst, openSecond); };
        co_await both(openBoth, readSource);
    });
    EXPECT_EQ(first->content.plainText, "walrus1\r\n");
    EXPECT_EQ(first, second);
    EXPECT_EQ(store_->cached(record), first);
    EXPECT_EQ(open(record), first);
    EXPECT_EQ(source, messageOf(1, "walrus1"));
    EXPECT_EQ(mail_->file(record), source);
    EXPECT_TRUE(mail_->message(1).hasBody);
    EXPECT_EQ(mail_->message(1).snippet, "walrus1");
    EXPECT_EQ(mail_->rig.index.search("walrus1"), std::vector<std::string>{"<m1@x>"});
    EXPECT_TRUE(downloads_->messages->empty());

    // From the file, which also completes the index and the record.
    restart();
    mail_->rig.index.removeAccount(mail_->rig.account.id);
    mail_->setHasBody(record, false);
    EXPECT_EQ(open(record)->content.plainText, "walrus1\r\n");
    EXPECT_EQ(mail_->rig.index.search("walrus1").size(), 1U);
    EXPECT_TRUE(mail_->message(1).hasBody);

    mail_->rig.run([&] { return mail_->rig.engines.disconnectAll(); });
    EXPECT_EQ(mail_->fetches(), 1U);
}

TEST_F(BodyStoreTest, AMissingFileIsFetchedAgain) {
    const auto record = mail_->message(2);
    open(record);
    mail_->rig.environment.files.deleteBody(BodyKey::of(record));
    restart();
    EXPECT_EQ(open(record)->content.plainText, "walrus2\r\n");
    EXPECT_TRUE(mail_->file(record));
}

TEST_F(BodyStoreTest, WhatCannotBeHadIsTold) {
    auto expunged = mail_->message(1);
    expunged.uid = 99;
    EXPECT_THROW(open(expunged), IMAPError);
    auto orphan = mail_->message(1);
    orphan.accountID = UUID::random();
    EXPECT_THROW(open(orphan), AccountGone);
    for (const auto& record : {expunged, orphan}) {
        EXPECT_EQ(store_->cached(record), nullptr);
        EXPECT_FALSE(mail_->file(record));
        EXPECT_THROW(mail_->rig.run([&] { return store_->source(record); }), UserError);
    }
    EXPECT_TRUE(downloads_->messages->empty());
    // A failure is not remembered.
    EXPECT_NE(open(mail_->message(1)), nullptr);
}

TEST_F(BodyStoreTest, AMessageThatWentMeanwhileLeavesNoFile) {
    const auto record = mail_->message(1);
    mail_->rig.context->messages.remove(record.mailboxKey(), std::vector{record.id});
    EXPECT_EQ(open(record)->content.plainText, "walrus1\r\n");
    EXPECT_FALSE(mail_->file(record));
}

TEST_F(BodyStoreTest, AFileThatCannotBeWrittenHidesNothing) {
    const auto record = mail_->message(1);
    mail_->setHasBody(record, true);
    writeFile(mail_->rig.directory / "Messages", "in the way");
    EXPECT_EQ(open(record)->content.plainText, "walrus1\r\n");
    EXPECT_FALSE(mail_->message(1).hasBody);
    EXPECT_EQ(mail_->rig.run([&] { return store_->source(record); }), messageOf(1, "walrus1"));
}

TEST_F(BodyStoreTest, OneWhoGivesUpLeavesTheOtherItsLoad) {
    const auto record = mail_->message(1);
    const auto& main = mail_->rig.runtime.executors().main;
    // The download can't begin as long as another one of the message is under way.
    std::optional<BodyDownloads::Mark> other(downloads_->mark({record.id}));
    MessageCache::EntryPointer entry;
    Task impatient(main, [&]() -> Async<void> { co_await store_->content(record); });
    Task patient(main, [&]() -> Async<void> { entry = co_await store_->content(record); });
    mail_->rig.run([]() -> Async<void> { co_return; });
    impatient.cancel();
    mail_->rig.run([&] { return impatient.finished(); });
    EXPECT_FALSE(patient.isFinished());
    other.reset();
    mail_->rig.run([&] { return patient.finished(); });
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(entry->content.plainText, "walrus1\r\n");

    // When nobody waits any longer, nothing is loaded.
    const auto second = mail_->message(2);
    other.emplace(downloads_->mark({second.id}));
    Task alone(main, [&]() -> Async<void> { co_await store_->content(second); });
    mail_->rig.run([]() -> Async<void> { co_return; });
    alone.cancel();
    mail_->rig.run([&] { return alone.finished(); });
    other.reset();
    EXPECT_TRUE(mail_->rig.eventually([&] { return store_.use_count() == 1; }));
    EXPECT_EQ(store_->cached(second), nullptr);
}

TEST_F(BodyStoreTest, SamplesAreShownAndNeverKept) {
    auto& rig = mail_->rig;
    rig.environment.isShowingSamples = true;
    rig.run([&] { return fillWithSamples(rig.environment.writer, rig.environment.clock->now()); });
    const auto record = *rig.context->messages.find({sampleAccountID, "INBOX"}, 1);
    EXPECT_TRUE(open(record)->content.plainText);
    EXPECT_THAT(rig.run([&] { return store_->source(record); }), testing::HasSubstr("\r\n\r\n"));
    EXPECT_FALSE(mail_->file(record));
    EXPECT_TRUE(rig.index.allMessageIDs().empty());
    EXPECT_FALSE(rig.context->messages.find(record.id)->hasBody);
}

TEST(MessageCache, LetsTheLeastUsedGo) {
    MessageCache cache(MessageCache::Limits(3, 100));
    const auto entry = [](std::size_t plain, std::size_t html) {
        MessageCache::Entry made;
        made.content.plainText = std::string(plain, 'p');
        if (html > 0) made.content.html = std::string(html, 'h');
        return std::make_shared<const MessageCache::Entry>(std::move(made));
    };
    for (const char* key : {"a", "b", "c"}) cache.store(key, entry(10, 0));
    cache.find("a");
    cache.store("d", entry(10, 0));
    EXPECT_FALSE(cache.find("b")) << "four are too many";
    EXPECT_TRUE(cache.find("c") && cache.find("d") && cache.find("a"));
    cache.store("d", entry(40, 50));
    EXPECT_TRUE(cache.find("a") && cache.find("d") && !cache.find("c")) << "they cost 100";
    cache.store("e", entry(11, 0));
    EXPECT_TRUE(cache.find("e") && !cache.find("a") && !cache.find("d")) << "the last two cost 101";
    cache.store("e", entry(101, 0));
    EXPECT_FALSE(cache.find("e")) << "one that never fits leaves no old one in its place";
}

}}
