#include "bench/WriterBenchmark.h"

#include "base/ManualClock.h"
#include "bench/Timing.h"
#include "records/JSONCells.h"
#include "records/ModelContext.h"
#include "sync/MessageRecordMaker.h"
#include "sync/RecordWriter.h"

#include <algorithm>
#include <array>
#include <boost/asio/io_context.hpp>
#include <limits>
#include <random>
#include <sqlite3.h>
#include <stdexcept>

namespace velmo::bench {

namespace {

constexpr std::uint32_t messageCount = 10'000;
constexpr int rounds = 7;

constexpr std::array<const char*, 10> senders{
    "anna.berg@example.org",   "noreply@shop.example.com", "notifications@forge.example.net", "j.doe@company.example",
    "news@weekly.example.org", "billing@host.example.com", "list-owner@lists.example.org",    "hello@travel.example",
    "team@project.example",    "support@bank.example.com"};

constexpr std::array<const char*, 12> subjects{"Re: Minutes of the meeting on Tuesday",
                                               "Your order has been shipped",
                                               "[project/core] Fix the reader for truncated input (#1482)",
                                               "Holiday photos",
                                               "This week in systems research",
                                               "Invoice 2026-0817",
                                               "Re: [dev] Proposal for the next release",
                                               "Weekend getaways from 49 euros",
                                               "Agenda and slides for tomorrow",
                                               "Your statement is ready",
                                               "Fwd: Contract draft, second version",
                                               "Grüße aus Zürich — und eine Frage"};

constexpr std::array<const char*, 24> words{"the",      "meeting", "we",     "could",    "about",  "please",
                                            "attached", "version", "thanks", "tomorrow", "review", "change",
                                            "with",     "and",     "before", "team",     "update", "report",
                                            "schedule", "let",     "me",     "know",     "für",    "plan"};

std::string text(std::mt19937& random, std::size_t length) {
    std::string result;
    while (result.size() < length) {
        if (!result.empty()) result += ' ';
        result += words[random() % words.size()];
    }
    return result;
}

IMAPBodyPart part(const char* section, const char* type, const char* subtype, std::int64_t size) {
    IMAPBodyPart result;
    result.section = section;
    result.type = type;
    result.subtype = subtype;
    result.encoding = "quoted-printable";
    result.parameters["charset"] = "utf-8";
    result.size = size;
    return result;
}

/// A text with its HTML form, every fifth time with an attachment.
IMAPBodyStructure structure(std::uint32_t uid) {
    if (uid % 5 != 0)
        return IMAPBodyStructure::multipart("alternative",
                                            {IMAPBodyStructure::single(part("1", "text", "plain", 1800)),
                                             IMAPBodyStructure::single(part("2", "text", "html", 9400))});
    auto attachment = part("2", "application", "pdf", 240'000);
    attachment.disposition = "attachment";
    attachment.dispositionParameters["filename"] = "Report " + std::to_string(uid) + ".pdf";
    const auto alternative =
        IMAPBodyStructure::multipart("alternative", {IMAPBodyStructure::single(part("1.1", "text", "plain", 1800)),
                                                     IMAPBodyStructure::single(part("1.2", "text", "html", 9400))});
    return IMAPBodyStructure::multipart("mixed", {alternative, IMAPBodyStructure::single(attachment)});
}

SyncedMessage message(std::uint32_t uid, std::mt19937& random) {
    SyncedMessage result;
    result.uid = uid;
    if (random() % 3 != 0) result.flags.insert("\\Seen");
    if (random() % 20 == 0) result.flags.insert("$Forwarded");
    result.date = dateFromUnixMilliseconds(1'700'000'000'000 + std::int64_t{uid} * 60'000);
    result.size = 12'000 + static_cast<std::int64_t>(random() % 9000);
    IMAPEnvelope envelope;
    envelope.date = result.date;
    envelope.subject = subjects[random() % subjects.size()];
    envelope.from = {{"Some Sender", senders[random() % senders.size()]}};
    envelope.sender = envelope.replyTo = envelope.from;
    envelope.to = {{"A Person", "person@example.com"}};
    if (random() % 4 == 0) envelope.cc = {{"Second Person", "second@example.com"}, {std::nullopt, "third@example.com"}};
    const auto id = "@mail-" + std::to_string(random() % 90) + ".example.org>";
    envelope.messageID = "<" + std::to_string(random()) + "." + std::to_string(uid) + id;
    if (uid > 3 && random() % 2 == 0) {
        envelope.inReplyTo = "<" + std::to_string(uid - 3) + id;
        result.references = {"<" + std::to_string(uid / 10) + ".root" + id, *envelope.inReplyTo};
    }
    result.envelope = std::move(envelope);
    result.bodyStructure = structure(uid);
    result.isBulk = random() % 3 == 0;
    // Half of the mailings want to sell something.
    if (result.isBulk && random() % 2 == 0) result.snippet = "Save up to 20% off, a limited offer until Friday. ";
    result.snippet = result.snippet.value_or("") + text(random, 200);
    return result;
}

MailboxDelta makeDelta() {
    std::mt19937 random(1); // the same mail in every run
    MailboxDelta delta;
    delta.state.exists = messageCount;
    delta.state.uidValidity = 1;
    delta.state.uidNext = messageCount + 1;
    for (std::uint32_t uid = 1; uid <= messageCount; ++uid) delta.newMessages.push_back(message(uid, random));
    return delta;
}

/// A store on the disk's usual terms, in a directory that goes with it.
class Store {
  public:
    Store() : directory_(std::filesystem::temp_directory_path() / ("velmo-bench-" + UUID::random().text())) {
        container_ = ModelContainer::open(directory_ / "Mail.sqlite", main_.get_executor());
    }
    ~Store() {
        container_.reset();
        std::error_code ignored;
        std::filesystem::remove_all(directory_, ignored);
    }
    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;

    const std::shared_ptr<ModelContainer>& container() const { return container_; }
    std::filesystem::path bodies() const { return directory_ / "Messages"; }

  private:
    boost::asio::io_context main_;
    std::filesystem::path directory_;
    std::shared_ptr<ModelContainer> container_;
};

const MailboxKey inbox{UUID::random(), "INBOX"};

double timeWriter(const MailboxDelta& delta) {
    const Store store;
    RecordWriter writer(store.container()->makeContext(), MessageFiles(store.bodies()),
                        std::make_shared<ManualClock>());
    writer.upsertMailboxes(inbox.accountID, {{{"INBOX", "/", {}, MailboxRole::inbox}, 0, 0}});
    auto own = delta;
    return millisecondsOf([&] { writer.apply(std::move(own), inbox, LabelNewMail::yes); });
}

/// The columns of a row, ready to be bound.
struct PlainRow {
    std::vector<std::int64_t> integers;
    std::vector<std::optional<std::string>> texts;
};

PlainRow plainRow(const MessageRecord& r) {
    return {{r.uid, r.uidValidity, r.isSeen, r.isFlagged, r.isAnswered, r.isDraft, unixMilliseconds(r.date), r.size,
             r.hasAttachments, r.hasInvite, r.hasBody},
            {r.mailboxPath, cells::encode(r.otherFlags), r.categoryRaw, r.labelsJoined, r.fromName, r.fromEmail,
             r.subject, r.snippet, r.messageID, r.inReplyTo, r.threadKey, cells::encode(r.references),
             cells::encode(r.to), cells::encode(r.cc), cells::encode(r.replyTo), cells::encode(r.attachments)}};
}

void check(int code) {
    if (code != SQLITE_OK && code != SQLITE_DONE) throw std::runtime_error(sqlite3_errstr(code));
}

double timePlain(const std::vector<PlainRow>& rows) {
    const Store store;
    sqlite3* database = nullptr;
    check(sqlite3_open_v2(store.container()->file().c_str(), &database, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX,
                          nullptr));
    check(sqlite3_exec(database, "PRAGMA synchronous=NORMAL; PRAGMA temp_store=MEMORY", nullptr, nullptr, nullptr));
    sqlite3_stmt* statement = nullptr;
    check(sqlite3_prepare_v2(
        database,
        "INSERT INTO messages (accountID, uid, uidValidity, isSeen, isFlagged, isAnswered, isDraft, date, size, "
        "hasAttachments, hasInvite, hasBody, mailboxPath, otherFlags, categoryRaw, labelsJoined, fromName, fromEmail, "
        "subject, snippet, messageID, inReplyTo, threadKey, \"references\", \"to\", cc, replyTo, attachments) VALUES "
        "(?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)",
        -1, &statement, nullptr));
    const auto time = millisecondsOf([&] {
        check(sqlite3_exec(database, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr));
        for (const auto& row : rows) {
            int index = 0;
            const auto& account = inbox.accountID.octets();
            check(
                sqlite3_bind_blob(statement, ++index, account.data(), static_cast<int>(account.size()), SQLITE_STATIC));
            for (const auto number : row.integers) check(sqlite3_bind_int64(statement, ++index, number));
            for (const auto& text : row.texts)
                check(text ? sqlite3_bind_text(statement, ++index, text->data(), static_cast<int>(text->size()),
                                               SQLITE_STATIC)
                           : sqlite3_bind_null(statement, ++index));
            check(sqlite3_step(statement));
            check(sqlite3_reset(statement));
        }
        check(sqlite3_exec(database, "COMMIT", nullptr, nullptr, nullptr));
    });
    sqlite3_finalize(statement);
    sqlite3_close(database);
    return time;
}

}

std::vector<Row> benchWriter() {
    const auto delta = makeDelta();
    std::vector<PlainRow> rows;
    for (const auto& synced : delta.newMessages)
        rows.push_back(plainRow(makeMessageRecord(synced, inbox, 1, LabelNewMail::yes)));
    double ours = std::numeric_limits<double>::max();
    double peer = ours;
    for (int round = 0; round < rounds; ++round) {
        ours = std::min(ours, timeWriter(delta));
        peer = std::min(peer, timePlain(rows));
    }
    return {Row{"10,000 new messages in one delta", ours, peer, "ms", 2.5, Row::Better::lower}};
}

}
