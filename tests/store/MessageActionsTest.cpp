// What a person does to messages, on real servers.

#include "store/ActionsRig.h"
#include "store/MessageGroups.h"
#include "support/ServerTest.h"

#include <cstdlib>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>

namespace velmo::test { namespace {

using Records = MessageActions::Records;
using ReadState = MessageActions::ReadState;
using FlagState = MessageActions::FlagState;

constexpr const char* mailboxes[]{"INBOX", "Archive", "Junk", "Trash"};

/// What is known of a message wherever it stands.
struct Known {
    std::string mailbox;
    bool isSeen = false;
    bool isFlagged = false;
    friend bool operator==(const Known&, const Known&) = default;
    friend void PrintTo(const Known& known, std::ostream* out) {
        *out << known.mailbox << (known.isSeen ? " seen" : "") << (known.isFlagged ? " flagged" : "");
    }
};
using Mail = std::map<std::string, Known>; ///< by Message-ID

/// Alice's account, with and without what makes moving safe and quick; the parameter is what the server lacks.
class Actions : public WithServers<testing::TestWithParam<const char*>> {
  protected:
    void prepare() override {
        servers_.emplace(GetParam(), MailServers::RawLog::yes);
        servers_->fill(40);
        rig_.emplace(*servers_);
        rig_->start(ActionsRig::Server::real);
        pass();
    }
    void TearDown() override { rig_.reset(); }

    MessageActions& actions() { return *rig_->actions; }
    void pass() {
        rig_->rig.run([this] { return rig_->sync->syncAccount(rig_->rig.account); });
    }

    /// `count` messages, the unread ones first.
    Records some(const std::string& path, std::size_t count) {
        auto records = rig_->visible(path);
        std::ranges::stable_sort(records, {}, &MessageRecord::isSeen);
        records.resize(std::min(count, records.size()));
        return records;
    }

    std::string sent() {
        std::string all;
        for (const auto& session : servers_->clientSessions()) all += session;
        return all;
    }

    Mail shown() {
        Mail mail;
        for (const auto* path : mailboxes) {
            for (const auto& record : rig_->visible(path)) {
                const auto isNew = mail.emplace(*record.messageID, Known{path, record.isSeen, record.isFlagged}).second;
                EXPECT_TRUE(isNew) << *record.messageID << " twice";
            }
        }
        return mail;
    }

    /// What a fresh store would hold.
    void expectAgreement() {
        pass();
        ActionsRig fresh(*servers_);
        fresh.start(ActionsRig::Server::real);
        fresh.rig.run([&] { return fresh.sync->syncAccount(fresh.rig.account); });
        for (const auto* path : mailboxes) {
            auto ours = rig_->rig.held(path);
            auto theirs = fresh.rig.held(path);
            std::ranges::sort(ours, {}, &MessageRecord::uid);
            std::ranges::sort(theirs, {}, &MessageRecord::uid);
            ASSERT_EQ(ours.size(), theirs.size()) << path;
            for (std::size_t i = 0; i < ours.size(); ++i) {
                EXPECT_EQ(ours[i].uid, theirs[i].uid);
                EXPECT_EQ(ours[i].messageID, theirs[i].messageID);
                EXPECT_EQ(ours[i].flags(), theirs[i].flags()) << path << " " << ours[i].uid;
            }
            EXPECT_EQ(rig_->unread(path), std::ranges::count(theirs, false, &MessageRecord::isSeen)) << path;
        }
        EXPECT_TRUE(rig_->rig.status.hidden->empty());
    }

    std::optional<MailServers> servers_;
    std::optional<ActionsRig> rig_;
};

TEST_P(Actions, CanBeUndoneUntilTheyAreCarriedOut) {
    actions().setRead(some("INBOX", 4), ReadState::unread);
    const auto before = rig_->unread("INBOX");
    const auto two = some("INBOX", 2);
    actions().archive(two);
    EXPECT_EQ(rig_->title(), "Archived 2 messages");
    EXPECT_EQ(rig_->visible("INBOX").size(), 38U);
    EXPECT_EQ(rig_->unread("INBOX"), before - 2);
    EXPECT_EQ(rig_->left, idsOf(two));
    actions().moveToTrash(two);
    EXPECT_EQ(rig_->title(), "Archived 2 messages") << "they are leaving already";
    // What is unread may change meanwhile.
    actions().setRead({two[0]}, ReadState::read);
    actions().undo();
    EXPECT_EQ(rig_->banner(), "");
    EXPECT_EQ(rig_->visible("INBOX").size(), 40U);
    EXPECT_EQ(rig_->unread("INBOX"), before - 1);
    rig_->finish();
    rig_->clock->advance(Duration(60'000));
    rig_->finish();
    for (const char* word : {"UID MOVE", "UID COPY", "EXPUNGE"}) EXPECT_THAT(sent(), Not(testing::HasSubstr(word)));

    // The next action ends the time of the one before.
    const auto three = some("INBOX", 3);
    actions().moveToTrash({three[0], three[1]});
    EXPECT_EQ(rig_->title(), "Moved 2 messages to Trash");
    rig_->rig.environment.files.saveBody("Subject: x\r\n\r\n", BodyKey::of(three[0]));
    actions().moveToTrash({three[2]});
    EXPECT_EQ(rig_->title(), "Moved to Trash");
    rig_->finish();
    EXPECT_EQ(rig_->visible("Trash").size(), 2U);
    EXPECT_FALSE(rig_->rig.environment.files.loadBody(BodyKey::of(three[0])));
    EXPECT_EQ(rig_->rig.held("INBOX").size(), 38U);
    actions().undo();
    EXPECT_EQ(rig_->visible("INBOX").size(), 38U);

    // In the trash a deletion is for good, and can be undone all the same.
    const auto trash = rig_->visible("Trash");
    actions().moveToTrash(trash);
    EXPECT_EQ(rig_->title(), "Deleted 2 messages");
    actions().undo();
    EXPECT_EQ(rig_->visible("Trash").size(), 2U);
    actions().moveToTrash({trash[0]});
    EXPECT_EQ(rig_->title(), "Deleted");
    rig_->letTimePass();
    EXPECT_EQ(rig_->banner(), "");
    EXPECT_EQ(rig_->rig.held("Trash").size(), 1U);
    expectAgreement();
}

TEST_P(Actions, FindTheirWay) {
    actions().moveToJunk(some("INBOX", 2));
    EXPECT_EQ(rig_->title(), "Moved 2 messages to Junk");
    rig_->letTimePass();
    actions().moveToJunk(rig_->visible("Junk"));
    EXPECT_EQ(rig_->title(), "Moved to Inbox");
    rig_->letTimePass();
    EXPECT_EQ(rig_->visible("INBOX").size(), 40U);
    EXPECT_TRUE(rig_->rig.held("Junk").empty());

    // Messages of several mailboxes are one action; those that stand there already stay.
    actions().move(some("INBOX", 1), "Trash");
    EXPECT_EQ(rig_->title(), "Moved to Trash");
    rig_->letTimePass();
    auto both = some("INBOX", 2);
    both.push_back(rig_->visible("Trash").at(0));
    actions().moveToTrash(both);
    EXPECT_EQ(rig_->title(), "Moved 2 messages to Trash");
    actions().undo();
    actions().move(both, "Archive", "Filed");
    EXPECT_EQ(rig_->title(), "Filed");
    rig_->letTimePass();
    EXPECT_EQ(rig_->visible("Archive").size(), 3U);
    actions().archive(rig_->visible("Archive"));
    EXPECT_EQ(rig_->banner(), "");

    // What is left of an action at the end of the program is carried out.
    actions().deleteForever(some("Archive", 1), "Gone");
    actions().commitPendingAction();
    actions().moveAtOnce(some("Archive", 1), "Junk");
    EXPECT_EQ(rig_->banner(), "");
    rig_->finish();
    EXPECT_EQ(rig_->visible("Archive").size(), 1U);
    EXPECT_EQ(rig_->visible("Junk").size(), 1U);
    const auto path = rig_->rig.run([&] { return actions().roleMailbox(rig_->rig.account, MailboxRole::snoozed); });
    EXPECT_EQ(path, "Snoozed");
    EXPECT_TRUE(rig_->rig.directoryOfMailboxes.mailbox(MailboxRole::snoozed, rig_->rig.account.id));
    expectAgreement();
}

/// A person who clicks at random, and what should come of it.
class RandomPerson {
  public:
    RandomPerson(ActionsRig& rig, Mail mail, unsigned seed) : rig_(rig), mail_(std::move(mail)), random_(seed) {}

    void act() {
        const auto records = pick();
        if (records.empty()) return rig_.finish(); // everything is on its way
        auto& actions = *rig_.actions;
        switch (random_() % 12) {
        case 0: return take(records, "Archive", [&] { actions.archive(records); });
        case 1: return take(records, allIn(records, "Junk") ? "INBOX" : "Junk", [&] { actions.moveToJunk(records); });
        case 2:
            if (allIn(records, "Trash") && !hasPlenty()) return;
            return take(records, allIn(records, "Trash") ? "" : "Trash", [&] { actions.moveToTrash(records); });
        case 3: return take(records, "INBOX", [&] { actions.moveToInbox(records); });
        case 4: {
            const std::string path = mailboxes[random_() % std::size(mailboxes)];
            return take(records, path, [&] { actions.move(records, path); });
        }
        case 5:
            if (random_() % 8 == 0 && hasPlenty())
                take({records[0]}, "", [&] { actions.deleteForever({records[0]}, "Gone"); });
            return;
        case 6:
        case 7: {
            const bool isRead = random_() % 2 == 0;
            for (const auto& record : records) mail_.at(*record.messageID).isSeen = isRead;
            actions.setRead(records, isRead ? ReadState::read : ReadState::unread);
            return;
        }
        case 8: {
            const bool isFlagged = random_() % 2 == 0;
            for (const auto& record : records) mail_.at(*record.messageID).isFlagged = isFlagged;
            actions.setFlagged(records, isFlagged ? FlagState::flagged : FlagState::unflagged);
            return;
        }
        case 9:
        case 10: leaving_.clear(); return actions.undo();
        default: settle(); return actions.commitPendingAction();
        }
    }

    /// What lists should show once the server has answered; without those that may still come back.
    Mail shown() const {
        Mail mail = mail_;
        for (const auto& [id, target] : leaving_) mail.erase(id);
        return mail;
    }
    Mail atTheEnd() {
        settle();
        return mail_;
    }
    void settle() {
        for (const auto& [id, target] : std::exchange(leaving_, {})) {
            if (target.empty())
                mail_.erase(id);
            else
                mail_.at(id).mailbox = target;
        }
    }

  private:
    Records pick() {
        Records all;
        for (const auto* path : mailboxes) {
            const auto shown = rig_.visible(path);
            all.insert(all.end(), shown.begin(), shown.end());
        }
        std::ranges::shuffle(all, random_);
        if (!all.empty() && random_() % 2 == 0)
            std::erase_if(all, [path = all[0].mailboxPath](const auto& record) { return record.mailboxPath != path; });
        all.resize(std::min<std::size_t>(all.size(), 1 + random_() % 4));
        return all;
    }
    bool hasPlenty() const { return mail_.size() > 20; }
    static bool allIn(const Records& records, const std::string& path) {
        return std::ranges::all_of(records, [&](const auto& record) { return record.mailboxPath == path; });
    }
    template <class Action>
    void take(const Records& records, const std::string& target, Action action) {
        std::map<std::string, std::string> next;
        for (const auto& record : records) {
            if (record.mailboxPath != target) next[*record.messageID] = target;
        }
        if (!next.empty()) {
            settle();
            leaving_ = next;
        }
        action();
    }

    ActionsRig& rig_;
    Mail mail_;
    std::mt19937 random_;
    std::map<std::string, std::string> leaving_; ///< where to; "" for good
};

int actionsOfThePerson() {
    const char* number = std::getenv("VELMO_ACTIONS"); // NOLINT(concurrency-mt-unsafe): nobody sets it
    return number != nullptr ? std::max(1, std::atoi(number)) : 300;
}

TEST_P(Actions, OfARandomPersonEndAsTheyShould) {
    const Mail all = shown();
    ASSERT_EQ(all.size(), 40U);
    RandomPerson person(*rig_, all, 7);
    std::mt19937 random(11);
    const int count = actionsOfThePerson();
    for (int i = 0; i < count; ++i) {
        person.act();
        if (random() % 25 == 0) pass();
        if (random() % 6 != 0) continue;
        rig_->finish();
        if (rig_->banner() == "undo" && random() % 2 == 0) {
            rig_->letTimePass();
            person.settle();
        }
        EXPECT_EQ(shown(), person.shown());
        ASSERT_FALSE(HasFailure()) << "action " << i;
        EXPECT_THAT(rig_->banner(), testing::AnyOf("", "undo"));
    }
    actions().commitPendingAction();
    rig_->finish();
    EXPECT_EQ(shown(), person.atTheEnd());
    expectAgreement();
}

INSTANTIATE_TEST_SUITE_P(Servers, Actions, testing::Values("", "MOVE", "MOVE,UIDPLUS,CONDSTORE"));

}}
