#include "bench/GeneratedMail.h"

#include "base/Text.h"

#include <algorithm>
#include <cmath>
#include <fmt/chrono.h>
#include <fmt/format.h>

namespace velmo::bench {

namespace {

constexpr std::array<const char*, 7> categories{"", "", "", "promotions", "updates", "newsletters", "security"};
constexpr unsigned senderCount = 800;
constexpr std::size_t wordsOfSubject = 6;
constexpr std::size_t wordsOfLine = 12;
constexpr std::size_t snippetLength = 200;

}

// --- Words -----------------------------------------------------------------------------------------------------

Words::Words() {
    for (auto& word : words_) {
        const std::size_t length = 2 + random_() % 9;
        for (std::size_t i = 0; i < length; ++i) word += static_cast<char>('a' + random_() % 26);
    }
}

std::string Words::text(std::size_t count) {
    std::string text;
    for (std::size_t i = 0; i < count; ++i) text += word() + ' ';
    return text;
}

std::size_t Words::next() {
    const double place = std::uniform_real_distribution(0.0, 1.0)(random_);
    return static_cast<std::size_t>(std::pow(static_cast<double>(words_.size()), place)) - 1;
}

// --- Messages --------------------------------------------------------------------------------------------------

std::string GeneratedMessage::messageID() const {
    return fmt::format("<{}@mail.example.org>", number);
}

std::string GeneratedMessage::source() const {
    std::string lines = text;
    std::size_t words = 0;
    for (char& c : lines) {
        if (c == ' ' && ++words % wordsOfLine == 0) c = '\n';
    }
    return fmt::format("From: {} <{}>\nTo: someone@example.org\nSubject: {}\nDate: {:%a, %d %b %Y %H:%M:%S} +0000\n"
                       "Message-ID: {}\nMIME-Version: 1.0\nContent-Type: text/plain; charset=utf-8\n\n{}\n",
                       fromName, fromEmail, subject, fmt::gmtime(date / 1000), messageID(), lines);
}

GeneratedMessage MailGenerator::next() {
    GeneratedMessage message;
    message.number = ++count_;
    // The backfill stores older mail after newer mail: ids and dates don't run together.
    const auto back = static_cast<std::int64_t>(random_() % 4'000'000'000);
    message.date = 1'700'000'000'000 + std::int64_t{message.number} * 40'000 - back;
    const auto sender = std::to_string(random_() % senderCount);
    message.fromName = "Sender " + sender;
    message.fromEmail = "sender" + sender + "@example.org";
    message.subject = words_.text(wordsOfSubject);
    message.text = words_.text(fewest_ + random_() % (most_ - fewest_ + 1));
    return message;
}

// --- A store of them -------------------------------------------------------------------------------------------

StoreFiller::StoreFiller(ModelContext& context, std::vector<UUID> accounts)
    : accounts_(std::move(accounts)), database_(context.container()->file()) {
    for (const auto& id : accounts_) {
        MailboxRecord inbox;
        inbox.accountID = id;
        inbox.path = inbox.name = "INBOX";
        inbox.roleRaw = rawText(MailboxRole::inbox);
        context.mailboxes.store(inbox);
    }
    database_.execute("PRAGMA synchronous=OFF; PRAGMA cache_size=-200000; BEGIN");
}

const UUID& StoreFiller::add(const GeneratedMessage& message) {
    const UUID& account = accounts_[static_cast<std::size_t>(message.number) % accounts_.size()];
    const std::string_view snippet = std::string_view(message.text).substr(0, snippetLength);
    const auto messageID = message.messageID();
    database_
        .query(
            "INSERT INTO messages (accountID, mailboxPath, uid, uidValidity, isSeen, isFlagged, isAnswered, isDraft, "
            "otherFlags, date, size, hasAttachments, hasInvite, hasBody, categoryRaw, labelsJoined, fromName, "
            "fromEmail, subject, snippet, messageID, threadKey, \"references\", \"to\", cc, replyTo, attachments) "
            "VALUES (?, 'INBOX', ?, 1, ?, 0, 0, 0, '[]', ?, 9000, 0, 0, 1, ?, '', ?, ?, ?, ?, ?, ?, '[]', '[]', "
            "'[]', '[]', '[]')")
        .run(account, message.number, random_() % 5 != 0, message.date, categories[random_() % categories.size()],
             message.fromName, message.fromEmail, message.subject, snippet, messageID, messageID);
    return account;
}

void StoreFiller::commit() {
    database_.execute("COMMIT");
}

void indexTexts(Runtime& runtime, SyncWriter& writer) {
    constexpr std::size_t step = 5'000;
    std::size_t left = 1;
    while (left > 0) left = runtime.run([&writer]() -> Async<std::size_t> { return writer.indexTexts(step); });
}

}
