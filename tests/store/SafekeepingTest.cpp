// What must outlive the process, a move or another client: changes that the server has not heard of, and what only this
// machine knows of messages.

#include "store/MailView.h"
#include "store/MessageGroups.h"
#include "store/StoreHome.h"
#include "support/FaultProxy.h"
#include "support/ServerTest.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace velmo::test { namespace {

using FlagState = MessageActions::FlagState;
using ReadState = MessageActions::ReadState;
using Fault = FaultProxy::Fault;

class Safekeeping : public WithServers<testing::Test> {
  protected:
    void prepare() override {
        servers_.emplace();
        servers_->fill(5);
        const auto direct = servers_->imap(ServerConfig::Security::tls);
        proxy_.emplace(direct.host, direct.port);
        const ServerConfig line("localhost", proxy_->port(), ServerConfig::Security::tls);
        home_.emplace(StoreHome::accountAt(line, servers_->value("ALICE_USER")), servers_->value("ALICE_PASSWORD"));
        open();
    }
    void TearDown() override { store_.reset(); }

    void open() {
        store_.reset();
        store_.emplace(*home_);
    }

    MessageActions& actions() { return store_->mail().actions(); }
    void finish() {
        actions().commitPendingAction();
        store_->run([this] { return actions().finished(); });
    }
    void pass() {
        EXPECT_EQ(store_->pass(), SyncStatus::idle());
        finish();
    }

    MessageRecord one(const std::string& path) { return store_->held(path).front(); }

    /// Runs with a session of another client.
    template <class Work>
    void elsewhere(Work work) {
        SystemClock clock;
        const auto client = std::make_shared<IMAPClient>(
            makeStrand(store_->runtime.executors().io), clock, servers_->imap(ServerConfig::Security::tls),
            MailCredential::password(home_->account.username, home_->password));
        store_->run([&]() -> Async<void> {
            co_await client->connect();
            co_await work(*client);
            co_await client->close();
        });
    }

    /// Letters of its flags, on the server's disk.
    std::size_t onServer(char letter, const std::string& path = "INBOX") {
        const auto mail = servers_->mail("alice", path);
        return static_cast<std::size_t>(
            std::ranges::count_if(mail, [letter](const auto& each) { return each.flags.contains(letter); }));
    }

    /// What only this machine knows of it.
    void know(const MessageRecord& record) {
        MessageChange change;
        change.labelsJoined = " own ";
        change.summary = "A summary.";
        store_->mail().context().messages.change(record.id, change);
    }
    void expectKnown(const std::string& path, const MessageRecord& before, const std::string& why) {
        const auto held = store_->held(path);
        const auto found = std::ranges::find(held, before.messageID, &MessageRecord::messageID);
        ASSERT_NE(found, held.end()) << why;
        EXPECT_NE(found->id, before.id) << why;
        EXPECT_EQ(found->labelsJoined, " own ") << why;
        EXPECT_EQ(found->summary, "A summary.") << why;
        EXPECT_TRUE(found->hasBody) << why;
        const auto body = store_->files().loadBody(BodyKey::of(*found));
        EXPECT_TRUE(body && !body->empty()) << why;
    }

    std::optional<MailServers> servers_;
    std::optional<FaultProxy> proxy_;
    std::optional<StoreHome> home_;
    std::optional<OpenStore> store_;
};

TEST_F(Safekeeping, AFlagThatTheServerHasNotHeardOfIsSaidAgainAfterTheNextStart) {
    pass();
    ASSERT_EQ(onServer('F') + onServer('S'), onServer('S'));
    const auto before = onServer('S');
    const auto unread = std::ranges::count(store_->held("INBOX"), false, &MessageRecord::isSeen);
    proxy_->fail(Fault(Fault::Kind::refuse));
    proxy_->breakAll();
    const auto all = store_->held("INBOX");
    actions().setFlagged(all, FlagState::flagged);
    actions().setRead(all, ReadState::read);
    finish();
    EXPECT_TRUE(actions().isUnconfirmed(idsOf(all)));
    EXPECT_THAT(store_->mail().troubles().all->front().text, testing::HasSubstr("has not heard of it yet"));
    open();
    // It stays as the person wanted it, whatever the server says meanwhile.
    EXPECT_TRUE(std::ranges::all_of(store_->held("INBOX"), &MessageRecord::isFlagged));
    proxy_->fail(Fault());
    pass();
    EXPECT_FALSE(actions().isUnconfirmed(idsOf(all)));
    EXPECT_EQ(onServer('F'), 5U);
    EXPECT_EQ(onServer('S'), before + static_cast<std::size_t>(unread));
    EXPECT_TRUE(store_->mail().troubles().all->empty());
    // Another client has the last word again.
    elsewhere([](IMAPClient& client) {
        std::vector<std::string> flags(1, "\\Flagged");
        return client.store("INBOX", "1:*", IMAPClient::FlagChange::remove, std::move(flags));
    });
    pass();
    EXPECT_FALSE(std::ranges::any_of(store_->held("INBOX"), &MessageRecord::isFlagged));
}

TEST_F(Safekeeping, WhatOnlyThisMachineKnowsFollowsAMessage) {
    pass();
    store_->prefetch();
    const auto record = one("INBOX");
    know(record);
    actions().archive({record});
    finish();
    expectKnown("Archive", record, "moved here");
    const auto archived = one("Archive");
    EXPECT_FALSE(store_->files().loadBody(BodyKey::of(record)));
    elsewhere([&](IMAPClient& client) -> Async<void> {
        co_await client.moveMessages("Archive", std::to_string(archived.uid), "INBOX");
    });
    pass();
    expectKnown("INBOX", archived, "moved by another client");
    // A mailbox that was made anew holds the same messages under other numbers.
    std::vector<std::string> sources;
    for (const auto& each : servers_->mail("alice", "INBOX")) sources.push_back(each.bytes);
    const auto moved = store_->held("INBOX");
    actions().move(moved, "Archive");
    finish();
    const auto inArchive = store_->held("Archive");
    const auto known = std::ranges::find(inArchive, record.messageID, &MessageRecord::messageID);
    ASSERT_NE(known, inArchive.end());
    elsewhere([&](IMAPClient& client) -> Async<void> {
        co_await client.createMailbox("Keep");
        co_await client.moveMessages("Archive", "1:*", "Keep");
        co_await client.select("INBOX");
        co_await client.execute("DELETE Archive");
        co_await client.createMailbox("Archive");
        co_await client.moveMessages("Keep", "1:*", "Archive");
    });
    pass();
    pass();
    expectKnown("Archive", *known, "numbered anew");
}

TEST_F(Safekeeping, AllThatWasMovedIsHeld) {
    servers_->fill(240, 2);
    pass();
    while (store_->run([this] {
        return store_->mail().sync().fetchOlder(store_->account, "INBOX", AccountSync::Backfill::everything);
    }) > 0) {
    }
    const auto all = store_->held("INBOX");
    ASSERT_EQ(all.size(), 245U);
    actions().archive(all);
    finish();
    EXPECT_EQ(store_->held("Archive").size(), 245U);
}

TEST_F(Safekeeping, AnActionWaitsForNobodyElsesWrite) {
    pass();
    const auto all = store_->held("INBOX");
    sqlite::Database other(home_->store() / "Mail.sqlite");
    {
        // A call that waited for its end would never come back with the change.
        const sqlite::Transaction writing(other, sqlite::Transaction::Kind::write);
        actions().setFlagged({all[0]}, FlagState::flagged);
        actions().archive({all[1]});
        actions().commitPendingAction();
        auto& lists = store_->mail().lists();
        const auto page = lists.messages(*lists.mailbox({store_->account.id, "INBOX"}), "", InboxFocus::all, 10);
        EXPECT_EQ(page.size(), 4U);
        const auto shown = std::ranges::find(page, all[0].id, &MessageRecord::id);
        EXPECT_TRUE(shown != page.end() && shown->isFlagged);
    }
    finish();
    EXPECT_TRUE(store_->mail().context().messages.find(all[0].id)->isFlagged);
    EXPECT_EQ(onServer('F'), 1U);
    EXPECT_EQ(servers_->mail("alice", "Archive").size(), 1U);
}

}}
