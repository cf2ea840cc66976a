#include "store/SampleMail.h"

#include "base/ManualClock.h"
#include "base/Runtime.h"
#include "formats/ParsedMessage.h"
#include "records/Category.h"
#include "records/ModelContext.h"
#include "store/SampleMailFiles.h"
#include "store/SampleMailReader.h"
#include "support/TemporaryDirectory.h"
#include "sync/SyncWriter.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <map>

namespace velmo { namespace {

const Date now = *dateFromISO8601("2031-11-05T23:30:20Z");

TEST(SampleMail, everyMessageIsWholeAndRecent) {
    const auto samples = sampleMessages(now);
    EXPECT_EQ(samples.size(), sampleMailFiles().size()) << "a file without a row, or a row without a file";
    Date newest{};
    std::map<std::string, Date> newestOfMailbox;
    for (const SampleMessage& sample : samples) {
        SCOPED_TRACE(sample.mailboxPath + " " + std::to_string(sample.uid));
        const SyncedMessage synced = syncedMessage(sample.uid, sample.flags, sample.source);
        ASSERT_TRUE(synced.envelope && synced.envelope->date && synced.envelope->messageID);
        ASSERT_EQ(synced.envelope->from.size(), 1U);
        EXPECT_TRUE(synced.envelope->from[0].name);
        EXPECT_FALSE(synced.envelope->to.empty());
        EXPECT_FALSE(synced.envelope->subject.value_or("").empty());
        EXPECT_EQ(synced.envelope->subject->find("=?"), std::string::npos);
        EXPECT_GT(synced.snippet.value_or("").size(), 40U);
        const ParsedMessage parsed = ParsedMessage::parse(sample.source);
        const std::string all = *synced.envelope->subject + parsed.plainText.value_or("") + parsed.html.value_or("");
        EXPECT_EQ(all.find("\uFFFD"), std::string::npos) << "charset or encoding is wrong";
        EXPECT_GE(synced.date, newestOfMailbox[sample.mailboxPath]) << "UIDs grow with time";
        newestOfMailbox[sample.mailboxPath] = synced.date;
        newest = std::max(newest, synced.date);
        EXPECT_EQ(sampleSource(sample.mailboxPath, sample.uid, now), sample.source);
        for (std::size_t i = sample.source.find('\n'); i != Bytes::npos; i = sample.source.find('\n', i + 1)) {
            ASSERT_EQ(sample.source[i - 1], '\r');
        }
    }
    EXPECT_EQ(newest, *dateFromISO8601("2031-11-05T23:27:00Z"));
    EXPECT_EQ(sampleSource("INBOX", 0, now), std::nullopt);
    EXPECT_EQ(sampleSource("Elsewhere", 1, now), std::nullopt);
}

TEST(SampleMail, readsTheScriptsOfTheWorld) {
    std::string all;
    for (const SampleMessage& sample : sampleMessages(now)) {
        const ParsedMessage parsed = ParsedMessage::parse(sample.source);
        const SyncedMessage synced = syncedMessage(sample.uid, {}, sample.source);
        all += *synced.envelope->from[0].name + *synced.envelope->subject + parsed.plainText.value_or("");
    }
    for (const std::string_view text :
         {"Grüße aus Zürich", "das große oder", "Самовар нашёлся!", "Приезжайте в субботу", "合唱団の写真",
          "みんな目をつぶって", "김서연", "배추 두 포기", "新茶到了", "八十度左右", "وصلت الكتب", "brûlée",
          "Emil Sørensen", "👋"}) {
        EXPECT_NE(all.find(text), std::string::npos) << text;
    }
}

TEST(SampleMail, attachmentsAreWhatTheyClaim) {
    const std::map<std::string, std::pair<std::string_view, std::string_view>> ends{
        {"application/pdf", {"%PDF-1.4", "%%EOF\n"}},
        {"image/png", {"\x89PNG\r\n\x1a\n", "\xae\x42\x60\x82"}},
        {"text/csv", {"plot,crop", "\"please take some\"\r\n"}},
        {"application/ics", {"BEGIN:VCALENDAR", "END:VCALENDAR"}},
        {"text/calendar", {"BEGIN:VCALENDAR", "END:VCALENDAR"}}};
    std::map<std::string, int> seen;
    bool hasInlinePicture = false;
    for (const SampleMessage& sample : sampleMessages(now)) {
        for (const MIMEAttachment& attachment : ParsedMessage::parse(sample.source).attachments) {
            ASSERT_TRUE(ends.contains(attachment.mimeType)) << attachment.mimeType;
            EXPECT_TRUE(attachment.data.starts_with(ends.at(attachment.mimeType).first)) << attachment.filename;
            EXPECT_TRUE(attachment.data.ends_with(ends.at(attachment.mimeType).second)) << attachment.filename;
            ++seen[attachment.mimeType];
            hasInlinePicture = hasInlinePicture || (attachment.isInline && attachment.mimeType == "image/png");
            // The event moves by whole days and keeps its hour.
            const std::size_t start = attachment.data.find("DTSTART:");
            if (start == Bytes::npos) continue;
            EXPECT_EQ(attachment.data.substr(start, 25), "DTSTART:20311109T190000\r\n");
            EXPECT_NE(attachment.data.find("DTEND:20311109T223000"), Bytes::npos);
            EXPECT_NE(attachment.data.find("METHOD:REQUEST"), Bytes::npos);
        }
    }
    EXPECT_EQ(seen.size(), ends.size());
    EXPECT_TRUE(hasInlinePicture);
}

TEST(SampleMail, numbersPartsAsServersDo) {
    const std::string message = "Content-Type: multipart/mixed; boundary=o\r\n\r\npreamble\r\n"
                                "--o\r\nContent-Type: multipart/alternative; boundary=i\r\n\r\n"
                                "--i\r\n\r\nplain\r\n--i\r\nContent-Type: text/html\r\n\r\n<p>\r\n--i--\r\n"
                                "--o\r\nContent-Type: Image/PNG\r\nContent-ID: <a@b>\r\n\r\n1234\r\n--o--\r\n";
    std::string parts;
    for (const IMAPBodyPart& part : flattenedParts(bodyStructureOf(message))) {
        parts += part.section + ' ' + part.type + '/' + part.subtype + ' ' + std::to_string(part.size) + '\n';
    }
    EXPECT_EQ(parts, "1.1 text/plain 5\n1.2 text/html 3\n2 image/png 4\n");

    std::string nested = "Content-Type: multipart/mixed; boundary=x\n\n";
    for (int level = 0; level < 15; ++level) nested += nested;
    bodyStructureOf(nested);
}

class SampleStoreTest : public testing::Test {
  protected:
    SampleStoreTest() {
        SyncWriter writer(container_, MessageFiles(directory_ / "Messages"), std::make_shared<ManualClock>(),
                          runtime_.executors().background);
        runtime_.run([&]() -> Async<void> {
            co_await fillWithSamples(writer, now);
            co_await fillWithSamples(writer, now); // once more changes nothing
        });
    }

    std::vector<MessageRecord> messages(std::string path) {
        return context_->messages.page(MessageListQuery({{sampleAccountID, std::move(path)}}, 200));
    }

    Runtime runtime_;
    test::TemporaryDirectory directory_;
    std::shared_ptr<ModelContainer> container_ = ModelContainer::temporary(runtime_.executors().main);
    std::unique_ptr<ModelContext> context_ = container_->makeContext();
};

TEST_F(SampleStoreTest, mailboxesHoldTheSamples) {
    std::map<std::string, std::int64_t> expected;
    for (const SampleMessage& sample : sampleMessages(now)) ++expected[sample.mailboxPath];
    ASSERT_EQ(sampleMailboxes().size(), expected.size());
    for (const IMAPMailbox& mailbox : sampleMailboxes()) {
        const auto record = context_->mailboxes.find({sampleAccountID, mailbox.path});
        ASSERT_TRUE(record) << mailbox.path;
        EXPECT_EQ(record->role(), mailbox.role);
        EXPECT_NE(record->role(), MailboxRole::other);
        EXPECT_EQ(record->totalCount, expected[mailbox.path]) << mailbox.path;
        EXPECT_EQ(context_->messages.count(record->key()), expected[mailbox.path]) << mailbox.path;
        EXPECT_EQ(record->unreadCount, context_->messages.unseenCount(record->key())) << mailbox.path;
    }
    EXPECT_EQ(messages("INBOX").front().subject, "Welcome to Velmo-Mail 👋");
    EXPECT_TRUE(messages("Drafts").front().isDraft);
}

TEST_F(SampleStoreTest, showsEverythingThatMailCanBe) {
    std::map<std::string, int> categories;
    int flagged = 0, answered = 0, unread = 0, invitations = 0;
    std::map<std::string, std::string> files;
    for (const MessageRecord& message : messages("INBOX")) {
        ++categories[message.categoryRaw];
        flagged += message.isFlagged ? 1 : 0;
        answered += message.isAnswered ? 1 : 0;
        unread += message.isSeen ? 0 : 1;
        invitations += message.hasInvite ? 1 : 0;
        for (const AttachmentInfo& file : message.attachments) files[file.filename] = file.section;
        const bool isPersonal = message.fromEmail.ends_with("@example.org") || message.references.size() > 1;
        EXPECT_TRUE(!isPersonal || message.categoryRaw.empty()) << message.subject << " is " << message.categoryRaw;
    }
    for (const Category category : allCategories) {
        EXPECT_GE(categories[std::string(rawText(category))], 1) << rawText(category);
    }
    EXPECT_GT(categories[""], 10);
    EXPECT_GT(flagged, 0);
    EXPECT_GT(answered, 0);
    EXPECT_GT(unread, 4);
    EXPECT_EQ(invitations, 1);
    for (const std::string name :
         {"shelves.pdf", "path-to-the-hut.png", "harvest.csv", "invite.ics", "Reiseplan für Zürich – Entwurf.pdf"}) {
        EXPECT_EQ(files[name], "2") << name;
    }
    EXPECT_FALSE(files.contains("lighthouse.png")) << "a picture of the text is no attachment";
}

TEST_F(SampleStoreTest, conversationsJoinAcrossMailboxes) {
    std::map<std::string, std::size_t> sizes;
    for (const MessageRecord& message : messages("INBOX")) {
        sizes[message.threadKey] = context_->messages.thread(sampleAccountID, message.threadKey).size();
    }
    std::vector<std::size_t> conversations;
    for (const auto& [key, size] : sizes) {
        if (size > 1) conversations.push_back(size);
    }
    std::ranges::sort(conversations);
    EXPECT_EQ(conversations, (std::vector<std::size_t>{2, 2, 3, 5}));
}

}}
