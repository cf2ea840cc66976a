#include "bench/ListBenchmark.h"

#include "base/ManualClock.h"
#include "base/Runtime.h"
#include "bench/GeneratedMail.h"
#include "bench/Timing.h"
#include "platform/Keychain.h"
#include "store/MessageLists.h"
#include "support/TemporaryDirectory.h"

#include <array>

namespace velmo::bench {

namespace {

constexpr int accountCount = 5;
constexpr std::size_t pageSize = 50;
constexpr int pages = 500;
constexpr std::size_t wordsOfText = 30;

/// Lists over a store of so many messages, in the inboxes of five accounts.
class Mail {
  public:
    explicit Mail(int count) {
        for (auto& id : ids_) addAccount(id);
        StoreFiller filler(*context_, {ids_.begin(), ids_.end()});
        for (int i = 0; i < count; ++i) filler.add(generator_.next());
        filler.commit();
    }

    MessageLists& lists() { return *lists_; }
    SyncWriter& writer() { return writer_; }
    Words& words() { return generator_.words(); }

    void index() { indexTexts(runtime_, writer_); }

  private:
    void addAccount(UUID& id) {
        MailAccount account;
        account.id = id = UUID::random();
        account.email = id.text() + "@example.org";
        runtime_.run([&]() -> Async<void> { co_await accounts_.add(account, std::string("secret")); });
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
    Troubles troubles_{settings_, clock_};
    StoreEnvironment environment_{runtime_.executors(),
                                  clock_,
                                  settings_,
                                  accounts_,
                                  *context_,
                                  writer_,
                                  MessageFiles(directory_ / "Messages"),
                                  bodies_,
                                  troubles_};
    StoreStatus status_;
    MailboxDirectory mailboxes_{environment_};
    std::shared_ptr<MessageLists> lists_ = std::make_shared<MessageLists>(environment_, status_, mailboxes_);
    std::array<UUID, accountCount> ids_;
    MailGenerator generator_{wordsOfText, wordsOfText};
};

template <class Work>
double slowest(int times, Work work) {
    std::vector<double> all;
    for (int i = 0; i < times; ++i) all.push_back(millisecondsOf(work));
    return percentile(std::move(all), 99);
}

Row told(std::string name, double milliseconds) {
    return {std::move(name), milliseconds, {}, "ms", {}, Row::Better::lower};
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

std::vector<Row> benchListSearch() {
    Mail mail(200'000);
    auto before = timeSearch(mail, "list search before its index is made, p99");
    mail.index();
    return {timeSearch(mail, "list search, 200,000 messages, p99"), before};
}

}

std::vector<Row> benchLists() {
    auto rows = benchPages();
    for (auto& row : benchListSearch()) rows.push_back(std::move(row));
    return rows;
}

}
