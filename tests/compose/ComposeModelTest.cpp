// A message from the first key to the mailboxes of both sides.

#include "compose/ComposeModel.h"

#include "compose/Signatures.h"
#include "compose/WritingRig.h"
#include "formats/ParsedMessage.h"
#include "support/ServerTest.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace velmo::test { namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

std::vector<IMAPAddress> addresses(std::optional<std::string> name, std::string email) {
    return {{std::move(name), std::move(email)}};
}

class ComposeModelTest : public WithServers<> {
  protected:
    void prepare() override { rig_ = std::make_unique<WritingRig>(); }

    std::unique_ptr<ComposeModel> written(ComposeRequest request) {
        auto model = std::make_unique<ComposeModel>(rig_->mail(), *rig_->outbox, rig_->store->settings);
        rig_->store->run([&] { return model->load(request); });
        EXPECT_EQ(*model->errorMessage, std::nullopt);
        EXPECT_EQ(*model->isDirty, request.as<ComposeRequest::Outbox>() != nullptr);
        return model;
    }

    bool send(ComposeModel& model) {
        const bool isQueued = rig_->store->run([&] { return model.send(); });
        rig_->settle();
        rig_->store->run([&] { return model.close(); });
        return isQueued;
    }

    /// A new message of Alice, sent; gives what Bob has of it.
    MessageRecord fromAlice(const std::string& subject, std::size_t count = 1) {
        const auto model = written(ComposeRequest::New{rig_->alice().id, UUID::random()});
        model->typedTo = "Bob <bob@example.test>, ALICE+copy@example.test";
        model->subject = subject;
        model->body = "Hello Bob" + *model->body;
        EXPECT_TRUE(send(*model));
        const auto arrived = rig_->inbox(rig_->bob, count);
        return arrived.at(0);
    }

    void save(ComposeModel& model) {
        rig_->store->run([&] { return model.saveDraft(); });
        EXPECT_FALSE(*model.isDirty);
    }

    std::unique_ptr<WritingRig> rig_;
};

TEST_F(ComposeModelTest, AnswersJoinTheThreadAndMarkWhatTheyAnswer) {
    Signatures(rig_->store->settings).save("Bob B.", {}, rig_->bob.id);
    const auto original = fromAlice("hello");
    const auto model = written(ComposeRequest::Reply{original.id, true, "Sure.", UUID::random()});
    EXPECT_EQ(*model->fromAccountID, rig_->bob.id);
    EXPECT_EQ(*model->subject, "Re: hello");
    EXPECT_THAT(*model->to, ElementsAre(IMAPAddress{{}, "alice@example.test"}));
    EXPECT_THAT(*model->cc, ElementsAre(IMAPAddress{{}, "ALICE+copy@example.test"}));
    EXPECT_TRUE(*model->showsCc);
    EXPECT_THAT(*model->body, AllOf(StartsWith("Sure.\n\n-- \nBob B.\n\n"), EndsWith(" wrote:\n> Hello Bob")));
    EXPECT_TRUE(send(*model));
    EXPECT_TRUE(rig_->mail().context().messages.find(original.id)->isAnswered);
    const auto answer = rig_->inbox(rig_->alice(), 3);
    ASSERT_EQ(answer.size(), 3U); // her own copy of the first, and the answer at both of her addresses
    EXPECT_EQ(answer.front().threadKey, original.threadKey);
    EXPECT_EQ(answer.front().inReplyTo, original.messageID);
}

TEST_F(ComposeModelTest, ADraftIsOneMessageHoweverOftenItIsSaved) {
    auto model = written(ComposeRequest::New{rig_->alice().id, UUID::random()});
    rig_->store->run([&] { return model->saveDraft(); });
    EXPECT_THAT(rig_->held(rig_->alice(), "Drafts"), IsEmpty()); // it was blank
    model->to = addresses("Bob", "bob@example.test");
    model->bcc = addresses("Zoë", "alice@example.test");
    for (const char* text : {"one", "two", "three"}) {
        model->body = text;
        EXPECT_TRUE(*model->isDirty);
        save(*model);
        ASSERT_EQ(rig_->held(rig_->alice(), "Drafts").size(), 1U);
    }
    rig_->store->run([&] { return model->close(); });
    const auto draft = rig_->held(rig_->alice(), "Drafts").front();
    model = written(ComposeRequest::EditDraft{draft.id, UUID::random()});
    EXPECT_THAT(*model->bcc, ElementsAre(IMAPAddress{"Zoë", "alice@example.test"}));
    EXPECT_EQ(*model->body, "three");
    model->attachments = std::vector{OutgoingAttachment{UUID::random(), "a.bin", "x/y", "data"}};
    save(*model);
    model->subject = "done";
    EXPECT_TRUE(send(*model));
    EXPECT_THAT(rig_->held(rig_->alice(), "Drafts"), IsEmpty());
    ASSERT_EQ(rig_->held(rig_->alice(), "Sent").size(), 1U);
    const auto arrived = rig_->inbox(rig_->bob, 1);
    ASSERT_EQ(arrived.size(), 1U);
    EXPECT_EQ(arrived.front().messageID, draft.messageID);
    EXPECT_THAT(rig_->source(arrived.front()), Not(HasSubstr("Bcc")));
    EXPECT_EQ(rig_->inbox(rig_->alice(), 1).size(), 1U); // by the blind copy
}

TEST_F(ComposeModelTest, ADraftOfAnotherProgramLosesNothing) {
    const auto original = fromAlice("a question");
    const Bytes draft =
        "From: bob@example.test\r\nTo: \"A, B\" <alice@example.test>\r\nMessage-ID: <d@x>\r\nIn-Reply-To: " +
        original.messageID.value() +
        "\r\nSubject: an answer\r\nMIME-Version: 1.0\r\nContent-Type: multipart/related; boundary=b\r\n\r\n"
        "--b\r\nContent-Type: text/html\r\n\r\n<p>Hi <b>there</b><img src=cid:p></p>\r\n"
        "--b\r\nContent-Type: image/png\r\nContent-ID: <p>\r\nContent-Disposition: inline\r\n\r\nPNG\r\n"
        "--b\r\nContent-Type: image/png\r\nContent-ID: <signature-0@velmo>\r\n"
        "Content-Disposition: inline\r\n\r\nlogo\r\n--b--\r\n";
    rig_->store->run([&] { return rig_->mail().filing().saveDraft(rig_->bob, "<d@x>", draft); });
    const auto model = written(ComposeRequest::EditDraft{rig_->held(rig_->bob, "Drafts").at(0).id, UUID::random()});
    EXPECT_THAT(*model->body, StartsWith("Hi there"));
    ASSERT_EQ(model->attachments->size(), 1U);
    EXPECT_EQ(model->attachments->front().data, "PNG");
    EXPECT_THAT(*model->to, ElementsAre(IMAPAddress{"A, B", "alice@example.test"}));
    // Saved and sent by the other account, it leaves no copy behind and still answers.
    model->setSender(rig_->alice().id);
    save(*model);
    EXPECT_THAT(rig_->held(rig_->bob, "Drafts"), IsEmpty());
    EXPECT_EQ(rig_->held(rig_->alice(), "Drafts").size(), 1U);
    model->setSender(rig_->bob.id);
    EXPECT_TRUE(send(*model));
    EXPECT_THAT(rig_->held(rig_->alice(), "Drafts"), IsEmpty());
    EXPECT_TRUE(rig_->mail().context().messages.find(original.id)->isAnswered);

    rig_->store->run(
        [&] { return rig_->mail().filing().saveDraft(rig_->bob, "<n@x>", "Subject: nameless\r\n\r\nx\r\n"); });
    const auto nameless = written(ComposeRequest::EditDraft{rig_->held(rig_->bob, "Drafts").at(0).id, UUID::random()});
    nameless->body = "y";
    save(*nameless);
    EXPECT_EQ(rig_->held(rig_->bob, "Drafts").size(), 1U);
    rig_->store->run([&] { return nameless->deleteDraft(); });
    EXPECT_THAT(rig_->held(rig_->bob, "Drafts"), IsEmpty());
}

TEST_F(ComposeModelTest, TakenBackItIsTheSameMessage) {
    rig_->store->settings.setInteger("undoSendSeconds", 3600);
    auto model =
        written(ComposeRequest::Mailto{"mailto:bob@example.test,alice@example.test?BCC=c@example.test&subject=x"
                                       "&attach=/etc/passwd&body=a%0D%0Ab",
                                       {},
                                       UUID::random()});
    EXPECT_TRUE(*model->showsBcc);
    EXPECT_THAT(*model->attachments, IsEmpty());
    EXPECT_EQ(*model->body, "a\nb");
    model->bcc = std::vector<IMAPAddress>();
    EXPECT_TRUE(rig_->store->run([&] { return model->send(); }));
    EXPECT_EQ((*rig_->mail().status().banner)->outboxID, model->queuedItem());
    const auto item = *model->queuedItem();
    EXPECT_TRUE(rig_->store->run([&] { return rig_->outbox->takeBack(item); }));
    const auto messageID = model->messageID;
    rig_->store->run([&] { return model->close(); });
    model = written(ComposeRequest::Outbox{item});
    EXPECT_EQ(model->messageID, messageID);
    EXPECT_EQ(model->to->size(), 2U);
    // A window that closes on it puts it back.
    rig_->store->run([&] { return model->close(); });
    ASSERT_TRUE(rig_->outbox->item(item));
    EXPECT_TRUE(rig_->outbox->item(item)->hasFailed());
    EXPECT_TRUE(rig_->store->run([&] { return rig_->outbox->takeBack(item); }));
    model = written(ComposeRequest::Outbox{item});
    save(*model);
    EXPECT_EQ(rig_->held(rig_->alice(), "Drafts").size(), 1U);
    rig_->store->settings.setInteger("undoSendSeconds", 0);
    EXPECT_TRUE(send(*model));
    EXPECT_EQ(rig_->inbox(rig_->bob, 1).at(0).messageID, messageID);
    EXPECT_EQ(rig_->held(rig_->alice(), "Sent").size(), 1U);
    EXPECT_THAT(rig_->held(rig_->alice(), "Drafts"), IsEmpty());
    EXPECT_THAT(*rig_->outbox->items, IsEmpty());
    EXPECT_TRUE(std::filesystem::is_empty(rig_->outboxFolder()));
}

TEST_F(ComposeModelTest, NothingGoesOutWithABadAddress) {
    const auto model = written(ComposeRequest::New{{}, UUID::random()});
    EXPECT_FALSE(send(*model)); // to nobody
    model->to = addresses({}, "bob@example.test");
    model->typedCc = "eve@example.test, bo b@x";
    EXPECT_FALSE(send(*model));
    EXPECT_EQ(*model->errorMessage, "Check these addresses: bo b@x");
    EXPECT_EQ(*model->typedCc, "eve@example.test, bo b@x");
    EXPECT_THAT(*rig_->outbox->items, IsEmpty());
}

TEST_F(ComposeModelTest, ForwardsFilesAndSwitchesSignatures) {
    Signatures signatures(rig_->store->settings);
    SignaturePiece logo;
    logo.picture = "PNG";
    signatures.save("Alice A.", {logo}, rig_->alice().id);
    signatures.save("Bob B.", {}, rig_->bob.id);
    auto model = written(ComposeRequest::New{rig_->alice().id, UUID::random()});
    model->to = addresses({}, "bob@example.test");
    model->subject = "files";
    model->attachments = std::vector{OutgoingAttachment{UUID::random(), "a.bin", "x/y", "data"}};
    EXPECT_TRUE(send(*model));
    const auto arrived = rig_->inbox(rig_->bob, 1).at(0);
    model = written(ComposeRequest::Forward{arrived.id, UUID::random()});
    EXPECT_EQ(*model->subject, "Fwd: files");
    EXPECT_THAT(*model->to, IsEmpty());
    EXPECT_EQ(model->inReplyTo, std::nullopt);
    EXPECT_THAT(rig_->source(arrived), HasSubstr("Content-ID: <signature-0@velmo>"));
    ASSERT_EQ(model->attachments->size(), 1U);
    EXPECT_EQ(model->attachments->front().data, "data");
    EXPECT_TRUE(model->replyContext->isForward);
    EXPECT_THAT(*model->body, StartsWith("-- \nBob B.\n\n---------- Forwarded message ----------\n"));
    model->setSender(rig_->alice().id);
    EXPECT_THAT(*model->body, AllOf(StartsWith("-- \nAlice A.\n\n---"), Not(HasSubstr("Bob B.\n\n--"))));
    rig_->store->run([&] { return model->close(); });
}

}}
