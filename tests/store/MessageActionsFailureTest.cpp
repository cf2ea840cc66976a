// What becomes of messages when a server refuses, or a connection breaks.

#include "store/ActionsRig.h"
#include "store/MessageGroups.h"
#include "store/RoleMailboxes.h"
#include "support/ScriptedServer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace velmo::test { namespace {

using Records = MessageActions::Records;
using ReadState = MessageActions::ReadState;

std::string tag(int number) {
    return "b" + std::to_string(number);
}

/// A session that signs in with this tag and the next one.
std::string session(const std::string& capabilities, int first = 1) {
    return "S: * OK [CAPABILITY IMAP4rev1 AUTH=PLAIN SASL-IR] hello\nC~ " + tag(first) +
           " AUTHENTICATE PLAIN *\nS: " + tag(first) + " OK in\nC: " + tag(first + 1) +
           " CAPABILITY\nS: * CAPABILITY IMAP4rev1 " + capabilities + "\nS: " + tag(first + 1) + " OK\n";
}
std::string selected(int number, int numbering = 7) {
    return "C: " + tag(number) + " SELECT \"INBOX\"\nS: * OK [UIDVALIDITY " + std::to_string(numbering) +
           "]\nS: " + tag(number) + " OK\n";
}

/// An account with two unread messages in its inbox, and a server that plays a transcript.
struct Scripted {
    explicit Scripted(const std::string& transcript)
        : server(transcript, ScriptedServer::Options(ScriptedServer::Security::tls)),
          rig(ServerConfig("localhost", server.port(), ServerConfig::Security::tls), "alice", "secret") {
        rig.start(ActionsRig::Server::scripted);
        for (const auto& [path, role] : {std::pair("INBOX", "inbox"), std::pair("Archive", "archive")}) {
            MailboxRecord mailbox;
            mailbox.accountID = rig.rig.account.id;
            mailbox.path = mailbox.name = path;
            mailbox.roleRaw = role;
            mailbox.unreadCount = 2;
            mailbox.uidValidity = 7;
            rig.rig.context->mailboxes.store(mailbox);
        }
        records.resize(2);
        for (std::size_t i = 0; i < records.size(); ++i) {
            records[i].accountID = rig.rig.account.id;
            records[i].mailboxPath = "INBOX";
            records[i].uid = static_cast<std::int64_t>(i) + 1;
            records[i].uidValidity = 7;
        }
        rig.rig.context->messages.insert(records);
    }

    MessageActions& actions() { return *rig.actions; }
    MessageRecord held(std::size_t i) { return *rig.rig.context->messages.find(records[i].id); }

    ScriptedServer server;
    ActionsRig rig;
    Records records;
};

struct Failing {
    const char* name;
    std::string transcript;
    const char* banner;
    std::vector<std::string> synced; ///< what may not be as it was
};

/// The next connection, where marks are taken off.
std::string unmarked(int first) {
    return "---\n" + session("UIDPLUS", first) + selected(first + 2) + "C: " + tag(first + 3) +
           " UID STORE 1:2 -FLAGS.SILENT (\\Deleted)\nS: " + tag(first + 3) + " OK\n";
}

std::vector<Failing> failingMoves() {
    const std::string plain = session("UIDPLUS") + selected(3);
    const std::string copied = plain + "C: b4 UID COPY 1:2 \"Archive\"\n";
    const std::string stored = copied + "S: b4 OK\nC: b5 UID STORE 1:2 +FLAGS.SILENT (\\Deleted)\n";
    const std::string expunged = stored + "S: b5 OK\nC: b6 UID EXPUNGE 1:2\n";
    const std::vector<std::string> both{"INBOX", "Archive"};
    return {
        {"refused COPY", copied + "S: b4 NO full\n", "full", both},
        {"refused STORE",
         stored + "S: b5 NO read-only\nC: b6 UID STORE 1:2 -FLAGS.SILENT (\\Deleted)\nS: b6 NO read-only\n",
         "read-only", both},
        {"refused EXPUNGE", expunged + "S: b6 NO busy\nC: b7 UID STORE 1:2 -FLAGS.SILENT (\\Deleted)\nS: b7 OK\n",
         "busy", both},
        {"cut at COPY", copied + "CLOSE\n" + unmarked(5), "connection", both},
        {"cut at STORE", stored + "RESET\n" + unmarked(6), "connection", both},
        {"cut at EXPUNGE", expunged + "CLOSE\n" + unmarked(7), "connection", both},
        {"cut at EXPUNGE, and the server stays away", expunged + "CLOSE\n---\nCLOSE\n", "connection", both},
        {"cut at MOVE", session("MOVE UIDPLUS") + selected(3) + "C: b4 UID MOVE 1:2 \"Archive\"\nCLOSE\n", "connection",
         both},
        {"refused SELECT", session("") + "C: b3 SELECT \"INBOX\"\nS: b3 NO gone\n", "gone", {}},
        {"cut at SELECT, twice",
         session("") + "C: b3 SELECT \"INBOX\"\nCLOSE\n---\n" + session("", 4) + "C: b6 SELECT \"INBOX\"\nCLOSE\n",
         "connection",
         {}},
        {"numbered anew", session("MOVE UIDPLUS") + selected(3, 8), "has changed on the server", {}},
    };
}

TEST(MessageActionFailures, ShowTheMessagesAgainAndLeaveNoMarks) {
    for (const auto& failing : failingMoves()) {
        SCOPED_TRACE(failing.name);
        Scripted account(failing.transcript);
        account.actions().archive(account.records);
        EXPECT_EQ(account.rig.unread("INBOX"), 0);
        account.rig.letTimePass();
        EXPECT_THAT(account.rig.banner(), testing::HasSubstr(failing.banner));
        EXPECT_EQ(account.rig.visible("INBOX").size(), 2U);
        EXPECT_EQ(account.rig.unread("INBOX"), 2);
        EXPECT_EQ(account.rig.synced, failing.synced);
        EXPECT_EQ(account.server.verdict(), "");

        // Whoever has looked away meanwhile finds it, and whoever waited for it is told.
        const auto& kept = account.rig.rig.troubles.all.get();
        ASSERT_EQ(kept.size(), 1U);
        EXPECT_THAT(kept.front().text, testing::HasSubstr(failing.banner));
        EXPECT_EQ(account.actions().takeFailure({account.records[1].id}), std::nullopt);
        const auto told = account.actions().takeFailure(idsOf(account.records));
        EXPECT_THAT(told.value_or(""), testing::HasSubstr("A message without a subject (and 1 more)"));
        EXPECT_TRUE(kept.empty());
    }
}

TEST(MessageActionFailures, ADeadSessionIsReplacedBeforeAnythingIsSent) {
    Scripted account(session("MOVE UIDPLUS") + selected(3) +
                     "C: b4 UID STORE 1 +FLAGS.SILENT (\\Flagged)\nS: b4 OK\nC: b5 SELECT \"INBOX\"\nCLOSE\n---\n" +
                     session("MOVE UIDPLUS", 6) + selected(8) + "C: b9 UID MOVE 1:2 \"Archive\"\nS: b9 OK\n");
    account.actions().setFlagged({account.records[0]}, MessageActions::FlagState::flagged);
    account.rig.finish();
    account.actions().archive(account.records);
    account.rig.letTimePass();
    EXPECT_EQ(account.rig.banner(), "");
    EXPECT_TRUE(account.rig.rig.held("INBOX").empty());
    EXPECT_EQ(account.server.verdict(), "");
}

TEST(MessageActionFailures, FlagsEndUpAsTheServerHasThem) {
    Scripted account(session("") + selected(3) + R"(
        C: b4 UID STORE 1:2 +FLAGS.SILENT (\Seen)
        S: b4 NO not today
        C: b5 UID STORE 1 +FLAGS.SILENT (\Seen)
        S: b5 OK
        C: b6 UID STORE 1 -FLAGS.SILENT (\Seen)
        S: b6 NO no
        C: b7 UID STORE 1 +FLAGS.SILENT (\Seen)
        S: b7 NO no
        C: b8 UID STORE 2 +FLAGS.SILENT (\Seen)
        PAUSE
        S: b8 OK)");
    auto& actions = account.actions();
    actions.setRead(account.records, ReadState::unread);
    actions.setRead(account.records, ReadState::read);
    EXPECT_EQ(account.rig.unread("INBOX"), 0);
    account.rig.finish();
    EXPECT_THAT(account.rig.banner(), testing::HasSubstr("not today"));
    EXPECT_EQ(account.rig.rig.troubles.all->size(), 1U);
    EXPECT_EQ(account.rig.unread("INBOX"), 2);
    EXPECT_FALSE(account.held(0).isSeen || account.held(1).isSeen);

    // Of three changes in a row only the first is taken.
    const Records first{account.records[0]}, second{account.records[1]};
    actions.setRead(first, ReadState::read);
    actions.setRead(first, ReadState::unread);
    actions.setRead(first, ReadState::read);
    EXPECT_TRUE(actions.isUnderWay(idsOf(first)));
    account.rig.finish();
    EXPECT_FALSE(actions.isUnderWay(idsOf(first)));
    EXPECT_TRUE(account.held(0).isSeen);
    EXPECT_EQ(account.rig.unread("INBOX"), 1);

    // A sync that had read the old flags stores them while the change is under way.
    actions.setRead(second, ReadState::read);
    ASSERT_TRUE(account.rig.rig.eventually([&] { return account.server.received().contains("b8 UID STORE"); }));
    account.rig.rig.context->messages.setFlags(second[0].mailboxKey(), second[0].id, MessageFlags());
    account.server.proceed();
    account.rig.finish();
    EXPECT_TRUE(account.held(1).isSeen);
    EXPECT_EQ(account.server.verdict(), "");
}

TEST(MessageActionFailures, WithoutAPlaceToGoNothingChanges) {
    Scripted account("");
    auto& rig = account.rig;
    account.actions().moveToJunk(account.records);
    EXPECT_EQ(rig.banner(), "This account has no Junk folder.");
    EXPECT_FALSE((*rig.rig.status.banner)->canUndo);
    auto archive = *rig.rig.context->mailboxes.find({rig.rig.account.id, "Archive"});
    const auto setRole = [&](const char* role) {
        archive.roleRaw = role;
        rig.rig.context->mailboxes.store(archive);
        rig.rig.run([]() -> Async<void> { co_return; });
    };
    setRole("other");
    account.actions().archive(account.records);
    EXPECT_EQ(rig.banner(), "This account has no Archive folder.");
    EXPECT_EQ(rig.visible("INBOX").size(), 2U);
    setRole("all");
    account.actions().archive(account.records);
    EXPECT_EQ(rig.title(), "Archived 2 messages");
    account.actions().undo();
    account.actions().moveToTrash(account.records);
    EXPECT_EQ(rig.title(), "Deleted 2 messages");

    // A banner of somebody else is not touched.
    rig.rig.status.showUndo("Message queued");
    rig.rig.status.banner.update([](auto& banner) { banner->outboxID = UUID::random(); });
    account.actions().undo();
    EXPECT_TRUE(rig.visible("INBOX").empty());
    account.actions().commitPendingAction();
    EXPECT_EQ(rig.title(), "Message queued");
}

TEST(MessageActionFailures, LabelsAndSamplesNeedNoServer) {
    Scripted account("");
    account.rig.rig.environment.isShowingSamples = true;
    account.actions().label(account.records, "work", LabelChange::add);
    account.actions().setRead({account.records[0]}, ReadState::read);
    account.rig.finish();
    EXPECT_EQ(account.held(1).labelsJoined, "work");
    EXPECT_TRUE(account.held(0).isSeen);
    EXPECT_EQ(account.rig.unread("INBOX"), 1);
    EXPECT_EQ(account.server.connections(), 0);
}

TEST(RoleMailboxes, AreMadeWhereTheServerKeepsTheOthers) {
    const auto mailbox = [](const char* path, const char* role, const char* delimiter) {
        MailboxRecord record;
        record.path = path;
        record.roleRaw = role;
        if (*delimiter) record.delimiter = delimiter;
        return record;
    };
    const auto below = mailbox("Inbox.Sent", "sent", ".");
    const struct {
        std::vector<MailboxRecord> mailboxes;
        MailProvider provider;
        MailboxRole role;
        const char* path;
    } cases[]{
        {{}, MailProvider::other, MailboxRole::sent, "Sent"},
        {{}, MailProvider::icloud, MailboxRole::sent, "Sent Messages"},
        {{mailbox("INBOX", "inbox", "."), below}, MailProvider::other, MailboxRole::snoozed, "INBOX.Snoozed"},
        {{mailbox("INBOX", "inbox", ""), below}, MailProvider::other, MailboxRole::snoozed, "Snoozed"},
        {{mailbox("INBOX", "inbox", "/"), below}, MailProvider::other, MailboxRole::drafts, "Drafts"},
        {{mailbox("INBOX", "inbox", "."), mailbox("INBOX.Trash", "trash", ".")},
         MailProvider::other,
         MailboxRole::drafts,
         "INBOX.Drafts"},
        {{mailbox("INBOX", "inbox", "."), mailbox("INBOX.Work", "other", ".")},
         MailProvider::other,
         MailboxRole::drafts,
         "Drafts"},
        {{below}, MailProvider::other, MailboxRole::archive, ""},
    };
    for (const auto& one : cases) EXPECT_EQ(pathForRole(one.provider, one.mailboxes, one.role), one.path);
}

}}
