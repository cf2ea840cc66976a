#include "bench/ListBenchmark.h"

#include "base/ManualClock.h"
#include "base/Runtime.h"
#include "platform/Keychain.h"
#include "store/MessageLists.h"
#include "support/TemporaryDirectory.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <random>

namespace velmo::bench {

namespace {

constexpr int accountCount = 5;
constexpr std::size_t pageSize = 50;
constexpr int pages = 500;

constexpr std::array<const char*, 7> categories{"", "", "", "promotions", "updates", "newsletters", "security"};

/// Words as mail has them: few are in about every message, most are rare.
class Words {
  public:
    Words() {
        for (auto& word : words_) {
            const std::size_t length = 2 + random_() % 9;
            for (std::size_t i = 0; i < length; ++i) word += static_cast<char>('a' + random_() % 26);
        }
    }

    std::string text(int count) {
        std::string text;
        for (int i = 0; i < count; ++i) text += words_[next()] + ' ';
        return text;
    }

    const std::string& word() { return words_[next()]; }

  private:
    std::size_t next() {
        const double place = std::uniform_real_distribution(0.0, 1.0)(random_);
        return static_cast<std::size_t>(std::pow(static_cast<double>(words_.size()), place)) - 1;
    }

    std::mt19937 random_{3};
    std::array<std::string, 30'000> words_;
};

/// Lists over a store of so many messages, in the inboxes of five accounts.
class Mail {
  public:
    explicit Mail(int count) {
        for (auto& id : ids_) addAccount(id);
        fill(count);
    }

    MessageLists& lists() { return *lists_; }
    SyncWriter& writer() { return writer_; }
    Words& words() { return words_; }

    void index() {
        std::size_t left = 1;
        while (left > 0) left = runtime_.run([this]() -> Async<std::size_t> { return writer_.indexTexts(5'000); });
    }

  private:
    void addAccount(UUID& id) {
        MailAccount account;
        account.id = id = UUID::random();
        account.email = id.text() + "@example.org";
        runtime_.run([&]() -> Async<void> { co_await accounts_.add(account, std::string("secret")); });
        MailboxRecord inbox;
        inbox.accountID = id;
        inbox.path = inbox.name = "INBOX";
        inbox.roleRaw = rawText(MailboxRole::inbox);
        context_->mailboxes.store(inbox);
    }

    void fill(int count) {
        std::mt19937 random(5);
        sqlite::Database database(container_->file());
        database.execute("PRAGMA synchronous=OFF; PRAGMA cache_size=-200000; BEGIN");
        auto insert = database.query(
            "INSERT INTO messages (accountID, mailboxPath, uid, uidValidity, isSeen, isFlagged, isAnswered, isDraft, "
            "otherFlags, date, size, hasAttachments, hasInvite, hasBody, categoryRaw, labelsJoined, fromName, "
            "fromEmail, subject, snippet, messageID, threadKey, \"references\", \"to\", cc, replyTo, attachments) "
            "VALUES (?, 'INBOX', ?, 1, ?, 0, 0, 0, '[]', ?, 9000, 0, 0, 1, ?, '', ?, ?, ?, ?, ?, ?, '[]', '[]', '[]', "
            "'[]', '[]')");
        for (int i = 1; i <= count; ++i) {
            const auto sender = std::to_string(random() % 800);
            // The backfill stores older mail after newer mail: ids and dates don't run together.
            const auto back = static_cast<std::int64_t>(random() % 4'000'000'000);
            const std::int64_t date = 1'700'000'000'000 + std::int64_t{i} * 40'000 - back;
            const auto messageID = "<" + std::to_string(i) + "@mail.example.org>";
            insert.run(ids_[static_cast<std::size_t>(i % accountCount)], i, random() % 5 != 0, date,
                       categories[random() % categories.size()], "Sender " + sender, "sender" + sender + "@example.org",
                       words_.text(6), words_.text(30), messageID, messageID);
        }
        database.execute("COMMIT");
    }

    Runtime runtime_;
    test::TemporaryDirectory directory_;
    MemorySettings settings_;
    MemoryKeychain keychain_;
    std::shared_ptr<Clock> clock_ = std::make_shared<ManualClock>();
    AccountStore accounts_{runtime_.executors(), *clock_, settings_, keychain_};
    std::shared_ptr<ModelContainer> container_ =
        ModelContainer::open(directory_ / "Mail.sqlite", runtime_.executors().main);
    std::unique_ptr<ModelContext> context_ = container_->makeContext();
    SyncWriter writer_{container_, MessageFiles(directory_ / "Messages"), clock_, runtime_.executors().background};
    BodyIndex bodies_{{}};
    StoreEnvironment environment_{runtime_.executors(),
                                  clock_,
                                  settings_,
                                  accounts_,
                                  *context_,
                                  writer_,
                                  MessageFiles(directory_ / "Messages"),
                                  bodies_};
    StoreStatus status_;
    MailboxDirectory mailboxes_{environment_};
    std::shared_ptr<MessageLists> lists_ = std::make_shared<MessageLists>(environment_, status_, mailboxes_);
    std::array<UUID, accountCount> ids_;
    Words words_;
};

/// The 99th percentile in milliseconds.
template <class Work>
double slowest(int times, Work work) {
    std::vector<double> all;
    for (int i = 0; i < times; ++i) {
        const auto start = std::chrono::steady_clock::now();
        work();
        all.push_back(std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count());
    }
    std::ranges::sort(all);
    return all[all.size() * 99 / 100];
}

Row told(std::string name, double milliseconds) {
    Row row;
    row.name = std::move(name);
    row.ours = milliseconds;
    row.unit = "ms";
    row.better = Row::Better::lower;
    return row;
}

std::vector<Row> benchPages() {
    Mail mail(1'000'000);
    MessagePageRequest request(mail.lists().resolve(UnifiedMailbox::mailbox(MailboxRole::inbox)), pageSize);
    const double first = slowest(pages, [&] { mail.lists().page(request); });
    const double next = slowest(pages, [&] { request.after = mail.lists().page(request).next; });
    request.after.reset();
    const double grouped = slowest(pages, [&] { mail.lists().conversations(request); });
    return {told("first page of 1,000,000 messages, p99", first), told("next page, p99", next),
            told("first page of conversations, p99", grouped)};
}

Row timeSearch(Mail& mail, std::string name) {
    MessagePageRequest request(mail.lists().resolve(UnifiedMailbox::mailbox(MailboxRole::inbox)), pageSize);
    return told(std::move(name), slowest(pages, [&] {
                    // What a person types, word by word: the beginning of one, then one with another.
                    const auto& word = mail.words().word();
                    request.search = word.substr(0, 1 + word.size() / 2);
                    if (request.search.size() > 3) request.search += ' ' + mail.words().word();
                    mail.lists().page(request);
                }));
}

std::vector<Row> benchSearch() {
    Mail mail(200'000);
    auto before = timeSearch(mail, "list search before its index is made, p99");
    mail.index();
    return {timeSearch(mail, "list search, 200,000 messages, p99"), before};
}

}

std::vector<Row> benchLists() {
    auto rows = benchPages();
    for (auto& row : benchSearch()) rows.push_back(std::move(row));
    return rows;
}

}
