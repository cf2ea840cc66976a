// The outbox against a server that does what the test says, and against real ones.

#include "compose/Outbox.h"

#include "base/ManualClock.h"
#include "base/Text.h"
#include "compose/ComposeModel.h"
#include "compose/WritingRig.h"
#include "formats/ParsedMessage.h"
#include "support/ServerTest.h"
#include "support/TemporaryDirectory.h"

#include <algorithm>
#include <deque>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <set>

namespace velmo::test { namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

/// How the server answers a message.
enum class Answer { accepts, refuses, defers, breaks, breaksBehindTheEnd, hangs };

class OutboxTest : public testing::Test {
  protected:
    OutboxTest()
        : home_(StoreHome::accountAt(ServerConfig("127.0.0.1", 1, ServerConfig::Security::tls), "alice"), "x") {
        open();
    }
    ~OutboxTest() override { close(); }

    void open() {
        store_ = std::make_unique<OpenStore>(home_, clock_);
        network_ = std::make_unique<NetworkMonitor>(store_->runtime.executors().main, *clock_, path_);
        Outbox::Parts parts(store_->mail(), store_->settings, *network_, folder());
        parts.transport = [this](MailAccount, MailCredential, SMTPEnvelope envelope,
                                 std::shared_ptr<const Bytes> message) -> Async<void> {
            return deliver(std::move(envelope), std::move(message));
        };
        auto outbox = std::make_unique<Outbox>(std::move(parts));
        outbox_ = outbox.get();
        store_->mail().add(std::move(outbox));
        outbox_->start();
        store_->run([this] { return outbox_->loaded(); });
    }

    void close() {
        store_.reset();
        network_.reset();
    }

    Async<void> deliver(SMTPEnvelope envelope, std::shared_ptr<const Bytes> message) {
        ++attempts_;
        handed_.insert(*message);
        const Answer answer = answers_.empty() ? Answer::accepts : answers_.front();
        if (!answers_.empty()) answers_.pop_front();
        if (answer == Answer::hangs) co_await clock_->wait(24h);
        if (answer == Answer::refuses) throw SMTPError::rejected("bob@example.test", "no such person");
        if (answer == Answer::breaks) throw SMTPError::connection(MailConnectionError::cannotConnect("mail.test"));
        if (answer == Answer::defers) throw SMTPError::deferred("bob@example.test", "come back later");
        if (answer == Answer::breaksBehindTheEnd)
            throw SMTPError::connection(MailConnectionError::closed("mail.test")).asUncertain();
        delivered_.push_back(*message);
        recipients_ = envelope.recipients;
    }

    std::filesystem::path folder() const { return home_.store() / "Outbox"; }

    OutboxItem item(Duration delay, std::string subject = "Hello") {
        OutboxItem made;
        made.id = UUID::random();
        made.accountID = home_.account.id;
        made.sendAt = clock_->now() + delay;
        made.to = {{{}, "bob@example.test"}};
        made.bcc = {{{}, "eve@example.test"}};
        made.subject = std::move(subject);
        made.body = "Hi\n\n-- \nAlice";
        made.messageID = "<" + made.id.text() + "@example.test>";
        return made;
    }

    UUID enqueue(OutboxItem made) {
        store_->run([&] { return outbox_->enqueue(made); });
        return made.id;
    }

    bool eventually(const std::function<bool()>& condition) { return store_->eventually(condition); }
    /// Everything that can happen now has happened.
    void settle() {
        store_->run([this] { return outbox_->finished(); });
    }
    bool exists(const UUID& id) const { return std::filesystem::exists(folder() / (id.text() + ".json")); }
    std::vector<std::string> troubles() {
        std::vector<std::string> texts;
        for (const auto& each : *store_->mail().troubles().all) texts.push_back(each.text);
        return texts;
    }
    /// Lets so much time pass, and the attempt that is due then fail.
    void expectNextAttemptAfter(Duration wait) {
        const int before = attempts_;
        clock_->advance(wait - 1ms);
        settle();
        EXPECT_EQ(attempts_, before);
        clock_->advance(1ms);
        EXPECT_TRUE(eventually([&] { return attempts_ == before + 1; }));
        settle();
    }
    std::string banner() { return (*store_->mail().status().banner).value_or(Banner()).text; }

    StoreHome home_;
    std::shared_ptr<ManualClock> clock_ = std::make_shared<ManualClock>();
    MemoryNetworkPath path_;
    std::unique_ptr<OpenStore> store_;
    std::unique_ptr<NetworkMonitor> network_;
    Outbox* outbox_ = nullptr;
    std::deque<Answer> answers_;
    int attempts_ = 0;
    std::set<Bytes> handed_;
    std::vector<Bytes> delivered_;
    std::vector<std::string> recipients_;
};

TEST_F(OutboxTest, SendsWhenTheTimeHasComeAndTakesBackUntilThen) {
    const auto first = enqueue(item(10s, "first")), second = enqueue(item(10s, "second"));
    EXPECT_TRUE(exists(first) && exists(second));
    clock_->advance(9s);
    settle();
    EXPECT_EQ(attempts_, 0);
    EXPECT_TRUE(store_->run([&] { return outbox_->takeBack(first); }));
    EXPECT_FALSE(exists(first));
    EXPECT_FALSE(store_->run([&] { return outbox_->takeBack(first); }));
    ASSERT_TRUE(outbox_->claim(first));
    EXPECT_FALSE(outbox_->claim(first));
    clock_->advance(1s);
    EXPECT_TRUE(eventually([&] { return delivered_.size() == 1; }));
    settle();
    EXPECT_FALSE(exists(second));
    EXPECT_THAT(*outbox_->items, IsEmpty());
    const auto parsed = ParsedMessage::parse(delivered_.front());
    EXPECT_EQ(parsed.headers.value("Subject"), "second");
    EXPECT_FALSE(parsed.headers.value("Bcc"));
    EXPECT_THAT(parsed.html.value_or(""), HasSubstr("Hi"));
    EXPECT_THAT(recipients_, ElementsAre("bob@example.test", "eve@example.test"));
    EXPECT_EQ(banner(), "");
}

TEST_F(OutboxTest, NothingIsTakenBackWhileItIsBeingSent) {
    answers_ = {Answer::hangs};
    const auto id = enqueue(item(0s));
    ASSERT_TRUE(eventually([&] { return attempts_ == 1; }));
    EXPECT_FALSE(store_->run([&] { return outbox_->takeBack(id); }));
    EXPECT_FALSE(store_->run([&] { return outbox_->retry(id); }));
    EXPECT_FALSE(store_->run([&] { return outbox_->discard(id); }));
    EXPECT_TRUE(exists(id));
    close(); // a quit in the middle keeps it
    open();
    EXPECT_TRUE(eventually([&] { return delivered_.size() == 1; }));
}

TEST_F(OutboxTest, TriesAgainEveryMinuteWhileTheServerIsOutOfReach) {
    answers_ = {Answer::breaks, Answer::refuses, Answer::accepts};
    auto scheduled = item(0s);
    scheduled.isScheduled = true;
    const auto id = enqueue(scheduled);
    ASSERT_TRUE(eventually([&] { return outbox_->item(id) && outbox_->item(id)->failure; }));
    EXPECT_EQ(banner(), "");
    // Offline, a refusal is not the server's last word.
    path_.report(false);
    ASSERT_TRUE(eventually([&] { return !*network_->isOnline; }));
    clock_->advance(60s);
    ASSERT_TRUE(eventually([&] { return attempts_ == 2; }));
    settle();
    EXPECT_EQ(banner(), "");
    EXPECT_EQ(outbox_->item(id)->sendAt, clock_->now() + 60s);
    clock_->advance(60s);
    ASSERT_TRUE(eventually([&] { return delivered_.size() == 1; }));
    settle();
    EXPECT_EQ(banner(), "Scheduled message sent");
    EXPECT_THAT(delivered_.front(), HasSubstr(scheduled.messageID));
    EXPECT_EQ(handed_.size(), 1U); // the same bytes each time
}

TEST_F(OutboxTest, ARefusedMessageWaitsForThePerson) {
    answers_ = {Answer::refuses, Answer::refuses, Answer::accepts};
    auto scheduled = item(0s, "");
    scheduled.isScheduled = true;
    const auto id = enqueue(scheduled);
    const std::string sentence = SMTPError::rejected("bob@example.test", "no such person").sentence();
    ASSERT_TRUE(eventually([&] { return banner() == "Couldn't send “(No Subject)”: " + sentence; }));
    EXPECT_EQ((*store_->mail().status().banner)->lifetime, 12s);
    clock_->advance(24h);
    settle();
    EXPECT_EQ(attempts_, 1);
    close();
    open();
    ASSERT_TRUE(outbox_->item(id));
    EXPECT_TRUE(outbox_->item(id)->hasFailed());
    EXPECT_EQ(outbox_->item(id)->failure, sentence);
    EXPECT_TRUE(store_->run([&] { return outbox_->retry(id); }));
    ASSERT_TRUE(eventually([&] { return attempts_ == 2; }));
    settle();
    EXPECT_TRUE(outbox_->item(id)->isScheduled);
    EXPECT_TRUE(store_->run([&] { return outbox_->retry(id); }));
    EXPECT_TRUE(eventually([&] { return banner() == "Scheduled message sent"; }));
    EXPECT_FALSE(exists(id));
}

TEST_F(OutboxTest, WhatMayHaveArrivedIsTriedThreeTimesMoreAndThenThePersons) {
    answers_ = std::deque<Answer>(4, Answer::breaksBehindTheEnd);
    const auto id = enqueue(item(0s, "twice?"));
    ASSERT_TRUE(eventually([&] { return attempts_ == 1; }));
    settle();
    EXPECT_THAT(troubles(), ElementsAre(HasSubstr("may have arrived")));
    expectNextAttemptAfter(1min);
    close(); // the count outlives the process
    open();
    expectNextAttemptAfter(10min);
    expectNextAttemptAfter(60min);
    ASSERT_TRUE(outbox_->item(id));
    EXPECT_TRUE(outbox_->item(id)->hasFailed());
    EXPECT_THAT(banner(), HasSubstr("may have arrived, perhaps more than once"));
    clock_->advance(48h);
    settle();
    EXPECT_EQ(attempts_, 4);
    EXPECT_TRUE(store_->run([&] { return outbox_->retry(id); }));
    ASSERT_TRUE(eventually([&] { return delivered_.size() == 1; }));
    settle();
    EXPECT_THAT(troubles(), IsEmpty());
}

TEST_F(OutboxTest, WhatIsRefusedForNowIsTriedLaterAndTold) {
    answers_ = std::deque<Answer>(4, Answer::defers);
    const auto id = enqueue(item(0s, "greylisted"));
    ASSERT_TRUE(eventually([&] { return attempts_ == 1; }));
    settle();
    EXPECT_EQ(banner(), "");
    EXPECT_THAT(troubles(), ElementsAre(testing::AllOf(HasSubstr("“greylisted”"), HasSubstr("come back later"))));
    for (const auto wait : {5min, 15min, 60min}) expectNextAttemptAfter(wait);
    EXPECT_TRUE(outbox_->item(id)->hasFailed());
    EXPECT_TRUE(store_->run([&] { return outbox_->takeBack(id); }));
    EXPECT_THAT(troubles(), IsEmpty());
}

TEST_F(OutboxTest, AServerOutOfReachForAnHourIsTold) {
    answers_ = std::deque<Answer>(100, Answer::breaks);
    const auto id = enqueue(item(0s));
    ASSERT_TRUE(eventually([&] { return attempts_ == 1; }));
    for (int minute = 0; minute < 60; ++minute) {
        settle();
        EXPECT_THAT(troubles(), IsEmpty());
        expectNextAttemptAfter(1min);
    }
    EXPECT_THAT(troubles(), ElementsAre(HasSubstr("“Hello” has not been sent yet")));
    EXPECT_FALSE(outbox_->item(id)->hasFailed());
    EXPECT_TRUE(store_->run([&] { return outbox_->discard(id); }));
    EXPECT_THAT(troubles(), IsEmpty());
}

TEST_F(OutboxTest, AtTheEndSendsWhatThePersonHasSentAndNothingElse) {
    auto scheduled = item(1h, "scheduled");
    scheduled.isScheduled = true;
    enqueue(scheduled);
    EXPECT_FALSE(outbox_->hasUnsent());
    auto failed = item(0s, "failed");
    failed.sendAt = OutboxItem::distantFuture;
    failed.failure = "why";
    enqueue(failed);
    EXPECT_FALSE(outbox_->hasUnsent());
    enqueue(item(10s, "just sent"));
    EXPECT_TRUE(outbox_->hasUnsent());
    store_->run([this] { return outbox_->flush(); });
    ASSERT_EQ(delivered_.size(), 1U);
    EXPECT_THAT(delivered_.front(), HasSubstr("just sent"));
    EXPECT_EQ(outbox_->items->size(), 2U);
}

TEST_F(OutboxTest, ANewPasswordSendsWhatTheOldOneCouldNot) {
    OutboxItem refused = item(0s);
    refused.sendAt = OutboxItem::distantFuture;
    refused.failure = SMTPError::authenticationFailed().sentence();
    OutboxItem other = refused;
    other.id = UUID::random();
    other.failure = "no such person";
    enqueue(refused);
    enqueue(other);
    outbox_->accountChanged(home_.account.id);
    ASSERT_TRUE(eventually([&] { return delivered_.size() == 1; }));
    settle();
    EXPECT_FALSE(outbox_->item(refused.id));
    EXPECT_TRUE(outbox_->item(other.id));
}

TEST_F(OutboxTest, ReadsWhatAnotherProcessLeftAndSetsDamagedFilesAside) {
    OutboxItem whole = item(-1h);
    whole.cc = {{"Zoë, Q.", "zoe@example.test"}};
    whole.attachments = {{UUID::random(), "a\n\xFF.bin", "x/y", Bytes("\0\xFF", 2)}};
    whole.inReplyTo = "<1@x>";
    whole.references = {"<0@x>", "<1@x>"};
    whole.answering = 7;
    whole.failure = "why";
    whole.tries = 2;
    whole.attachments[0].filename = "a\n.bin";
    EXPECT_EQ(OutboxItem::fromJSON(whole.json()), whole);
    OutboxItem stranger = item(-1h);
    stranger.accountID = UUID::random();
    const std::string text = whole.json();
    close();
    OutboxFiles(folder()).write(whole);
    OutboxFiles(folder()).write(stranger);
    for (const auto& damaged : {std::string(), text.substr(0, text.size() / 2), std::string("[]"), text,
                                text::replacedAll(text, "\"hasSavedDraft\":false", "\"hasSavedDraft\":0")})
        writeFile(folder() / (UUID::random().text() + ".json"), damaged);
    open();
    EXPECT_THAT(banner(), HasSubstr(".damaged"));
    ASSERT_TRUE(eventually([&] { return delivered_.size() == 1; }));
    settle();
    EXPECT_EQ(attempts_, 1);
    EXPECT_TRUE(exists(stranger.id));
    EXPECT_EQ(outbox_->items->size(), 1U);
    // The damaged ones, the stranger's, and what was sent but can't be filed on a server that is out of reach.
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder()), {}), 5 + 1 + 2);
}

TEST_F(OutboxTest, WhatWasTakenBackIsKeptUntilItIsSafe) {
    const auto lost = item(1h, "lost"), saved = item(1h, "saved"), queuedAgain = item(1h, "again");
    for (const auto& one : {lost, saved, queuedAgain}) {
        enqueue(one);
        EXPECT_TRUE(store_->run([&] { return outbox_->takeBack(one.id); }));
        EXPECT_TRUE(outbox_->claim(one.id));
    }
    store_->run([&] { return outbox_->release(saved.id); });
    OutboxItem again = queuedAgain;
    again.id = UUID::random();
    enqueue(again);
    close(); // the process ends before the others are safe
    open();
    ASSERT_EQ(outbox_->items->size(), 2U);
    ASSERT_TRUE(outbox_->item(lost.id) && outbox_->item(again.id));
    EXPECT_TRUE(outbox_->item(lost.id)->hasFailed());
    EXPECT_FALSE(outbox_->item(again.id)->failure);
    EXPECT_TRUE(store_->run([&] { return outbox_->discard(lost.id); }));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder()), {}), 1);
}

TEST_F(OutboxTest, ADraftThatNoServerTakesIsKept) {
    const auto written = [this](const std::string& body) {
        auto model = std::make_unique<ComposeModel>(store_->mail(), *outbox_, store_->settings);
        store_->run([&] { return model->load(ComposeRequest(ComposeRequest::New{home_.account.id, UUID::random()})); });
        model->body = body;
        EXPECT_ANY_THROW(store_->run([&] { return model->saveDraft(); }));
        EXPECT_TRUE(*model->isDirty);
        return model;
    };
    auto unwanted = written("unwanted"), closed = written("one");
    closed->body = "two";
    EXPECT_ANY_THROW(store_->run([&] { return closed->saveDraft(); }));
    EXPECT_THAT(*outbox_->items, IsEmpty());
    const auto kept = [this] { return std::distance(std::filesystem::directory_iterator(folder()), {}); };
    EXPECT_EQ(kept(), 2);
    store_->run([&] { return unwanted->deleteDraft(); });
    EXPECT_EQ(kept(), 1);
    for (auto* model : {unwanted.get(), closed.get()}) store_->run([&] { return model->close(); });
    ASSERT_EQ(outbox_->items->size(), 1U);
    EXPECT_EQ(outbox_->items->front()->body, "two");
    EXPECT_TRUE(outbox_->items->front()->hasFailed());
}

TEST_F(OutboxTest, SendsAFewAtATime) {
    answers_ = std::deque<Answer>(5, Answer::hangs);
    for (int i = 0; i < 6; ++i) enqueue(item(0s));
    ASSERT_TRUE(eventually([&] { return attempts_ == 4; }));
    EXPECT_EQ(outbox_->sending->size(), 4U);
}

TEST_F(OutboxTest, KeepsNothingThatTheDiskRefuses) {
    writeFile(folder(), "a file where the folder should be");
    EXPECT_ANY_THROW(enqueue(item(0s)));
    settle();
    EXPECT_EQ(attempts_, 0);
    EXPECT_THAT(*outbox_->items, IsEmpty());
}

TEST(Outbox, KnowsWhichServersFileSentMail) {
    MailAccount account;
    const std::vector<std::pair<std::string, bool>> hosts{{"smtp.GMail.com", true},
                                                          {"smtp.office365.com", true},
                                                          {"smtp-mail.outlook.com", true},
                                                          {"notgmail.com", false},
                                                          {"gmail.com.example.org", false}};
    for (const auto& [host, files] : hosts) {
        account.outgoing.host = host;
        EXPECT_EQ(filesSentMail(account), files) << host;
    }
    account.provider = MailProvider::google;
    EXPECT_TRUE(filesSentMail(account));
    MemorySettings settings;
    EXPECT_EQ(Outbox::undoWindow(settings), 10s);
    settings.setText("undoSendSeconds", "3");
    EXPECT_EQ(Outbox::undoWindow(settings), 10s);
    settings.setInteger("undoSendSeconds", 0);
    EXPECT_EQ(Outbox::undoWindow(settings), 0s);
}

// --- Real servers ------------------------------------------------------------------------------------------------

class OutboxServers : public WithServers<> {};

/// What stands behind the headers that the servers on the way have added.
Bytes fromOurHeaders(const Bytes& message) {
    const auto start = message.find("From: ");
    return start == Bytes::npos ? message : message.substr(start);
}

TEST_F(OutboxServers, DeliverWhatIsFiledAndClearTheDraft) {
    WritingRig rig;
    OutboxItem first;
    first.id = UUID::random();
    first.accountID = rig.bob.id;
    first.to = {{{}, "alice@example.test"}};
    first.subject = first.messageID = "<zero@example.test>";
    rig.store->run([&] { return rig.outbox->enqueue(first); });
    const auto arrivedFirst = rig.inbox(rig.alice(), 1);
    ASSERT_EQ(arrivedFirst.size(), 1U);
    const auto answered = arrivedFirst.front();

    OutboxItem item;
    item.id = UUID::random();
    item.accountID = rig.alice().id;
    item.sendAt = rig.mail().environment().clock->now();
    item.to = {{"Bob", "bob@example.test"}};
    item.subject = "Übermorgen";
    item.body = "First\n.\n..\n\nlast line";
    item.attachments = {{UUID::random(), "data.bin", "application/octet-stream", Bytes(100'000, '\xEE')}};
    item.messageID = "<one@example.test>";
    item.answering = answered.id;
    item.hasSavedDraft = true;
    const Bytes draft = "Message-ID: <one@example.test>\r\nSubject: a draft\r\n\r\nx\r\n";
    for (int i = 0; i < 2; ++i)
        rig.store->run([&] { return rig.mail().filing().saveDraft(rig.alice(), item.messageID, draft); });
    ASSERT_EQ(rig.held(rig.alice(), "Drafts").size(), 1U);

    rig.store->run([&] { return rig.outbox->enqueue(item); });
    rig.settle();
    EXPECT_EQ(*rig.mail().status().banner, std::nullopt);
    EXPECT_THAT(rig.held(rig.alice(), "Drafts"), IsEmpty());
    const auto copies = rig.held(rig.alice(), "Sent");
    ASSERT_EQ(copies.size(), 1U);
    EXPECT_TRUE(rig.mail().context().messages.find(answered.id)->isAnswered);
    const Bytes copy = rig.source(copies.front());
    EXPECT_TRUE(copy.starts_with("From: alice@example.test\r\n"));
    const auto arrived = rig.inbox(rig.bob, 1);
    ASSERT_EQ(arrived.size(), 1U);
    EXPECT_EQ(fromOurHeaders(rig.source(arrived.front())), copy + "\r\n");
    EXPECT_TRUE(std::filesystem::is_empty(rig.outboxFolder()));
}

/// With another client of the account.
template <class Work>
void elsewhere(WritingRig& rig, const MailAccount& account, Work work) {
    SystemClock clock;
    const auto client =
        std::make_shared<IMAPClient>(makeStrand(rig.store->runtime.executors().io), clock, account.incoming,
                                     MailCredential::password(account.username, rig.passwordOf(account)));
    rig.store->run([&]() -> Async<void> {
        co_await client->connect();
        co_await work(*client);
        co_await client->close();
    });
}

TEST_F(OutboxServers, FindWhatWasMovedAndKeepACopyThatIsRefused) {
    WritingRig rig;
    OutboxItem question;
    question.id = UUID::random();
    question.accountID = rig.bob.id;
    question.to = {{{}, "alice@example.test"}};
    question.messageID = "<question@example.test>";
    rig.store->run([&] { return rig.outbox->enqueue(question); });
    const auto arrived = rig.inbox(rig.alice(), 1);
    ASSERT_EQ(arrived.size(), 1U);
    OutboxItem answer;
    answer.id = UUID::random();
    answer.accountID = rig.alice().id;
    answer.to = {{{}, "bob@example.test"}};
    answer.subject = "An answer";
    answer.messageID = "<answer@example.test>";
    answer.inReplyTo = question.messageID;
    answer.answering = arrived.front().id;
    elsewhere(rig, rig.alice(),
              [](IMAPClient& client) -> Async<void> { co_await client.moveMessages("INBOX", "1:*", "Trash"); });
    // Something that is no mailbox stands in its place.
    const auto sent = rig.maildirOfAlice() / ".Sent";
    std::filesystem::remove_all(sent);
    writeFile(sent, "");
    rig.store->run([&] { return rig.outbox->enqueue(answer); });
    rig.settle();
    EXPECT_TRUE(rig.held(rig.alice(), "Trash").at(0).isAnswered);
    const auto troubles = *rig.mail().troubles().all;
    ASSERT_EQ(troubles.size(), 1U);
    EXPECT_THAT(troubles[0].text, AllOf(HasSubstr("“An answer” was sent"), HasSubstr("is kept here")));

    rig.reopen([] {});
    rig.reopen([&sent] { std::filesystem::remove(sent); });
    EXPECT_TRUE(rig.store->eventually([&] { return rig.held(rig.alice(), "Sent").size() == 1; }));
    EXPECT_TRUE(rig.store->eventually([&] { return std::filesystem::is_empty(rig.outboxFolder()); }));
    EXPECT_EQ(rig.inbox(rig.bob, 1).size(), 1U);
}

TEST_F(OutboxServers, FileWhatAProcessSentBeforeItDied) {
    WritingRig rig;
    OutboxItem item;
    item.id = UUID::random();
    item.accountID = rig.alice().id;
    item.to = {{{}, "bob@example.test"}};
    item.messageID = "<gone@example.test>";
    const Bytes message = "From: alice@example.test\r\nMessage-ID: <gone@example.test>\r\n\r\nthose very bytes\r\n";
    rig.reopen([&] {
        const OutboxFiles files(rig.outboxFolder());
        files.write(item);
        files.keepMessage(item.id, message);
        files.noteSent(item.id);
        files.keepMessage(UUID::random(), "of an attempt that failed");
        writeFile(rig.outboxFolder() / ".half-written", "x");
    });
    EXPECT_TRUE(rig.store->eventually([&] { return std::filesystem::is_empty(rig.outboxFolder()); }));
    const auto copies = rig.held(rig.alice(), "Sent");
    ASSERT_EQ(copies.size(), 1U);
    EXPECT_EQ(rig.source(copies.front()), message);
    EXPECT_THAT(rig.held(rig.bob, "INBOX"), IsEmpty());
}

}}
