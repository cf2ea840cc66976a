#include "terminal/SyncCommands.h"

#include "base/Localisation.h"
#include "base/Text.h"
#include "terminal/MailboxWords.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

namespace velmo {

namespace {

using nlohmann::json;

struct SyncWords {
    std::optional<std::string> account;
    std::string mailbox;
    bool withBodies = false;
    bool all = false;
};

constexpr Duration look{200};

void refuseSamples(Session& session) {
    if (session.app.accounts().accounts->empty())
        throw CommandError(tr("There is no account yet. Add one with: velmo accounts add --email YOU@…"));
}

std::string goneText() {
    return tr("The account was removed meanwhile.");
}

/// Why an account could not be served, as a sentence. Throws when it is the command that was ended.
Async<std::string> reasonOf(std::exception_ptr failure) {
    co_await checkCancellation();
    co_return isCancellation(failure) ? goneText() : sentenceOf(failure);
}

/// What was done for one account after the other. One that fails does not keep the others from their turn.
class Report {
  public:
    /// `entry` gets what `work` tells, or why it failed.
    Async<void> add(const MailAccount& account, json entry, Async<json> work) {
        std::exception_ptr failure;
        entry["error"] = nullptr;
        try {
            entry.update(co_await std::move(work));
        } catch (...) {
            failure = std::current_exception();
        }
        if (failure) {
            const std::string reason = co_await reasonOf(failure);
            entry["error"] = reason;
            failures_ += (failures_.empty() ? "" : "\n") + printable(account.email + ": " + reason);
        }
        document_.push_back(std::move(entry));
    }

    /// Throws when something failed.
    void end(Session& session) const {
        session.tellNotices();
        if (session.isJSON()) session.print(document_);
        if (!failures_.empty()) throw CommandError(failures_);
    }

  private:
    json document_ = json::array();
    std::string failures_;
};

// --- sync -----------------------------------------------------------------------------------------------------------

std::string progressText(const MailAccount& account, const PassProgress& progress) {
    return tr("{}: {} ({} of {})", printable(account.email), printable(shownPath(progress.mailbox)), progress.position,
              progress.count);
}

std::string resultText(const MailAccount& account, const PassResult& result) {
    return tr("{}: {}, {}", printable(account.email), trCount("{} mailbox", "{} mailboxes", result.mailboxes),
              trCount("{} new message", "{} new messages", result.newMessages));
}

/// One pass of the account, shown while it runs; waits for one that runs already. Throws when it failed.
Async<PassResult> pass(Session& session, MailAccount account) {
    MailStore& store = session.app.store();
    while (store.status().of(account.id).kind == SyncStatus::Kind::syncing) co_await session.app.clock().wait(look);
    const ScopedConnection showing = store.sync().progress.onChange([&session, &store, account] {
        const auto& all = store.sync().progress.get();
        const auto found = all.find(account.id);
        if (found != all.end()) session.console.progress(progressText(account, found->second));
    });
    co_await store.sync().syncAccount(account);
    const SyncStatus status = store.status().of(account.id);
    if (status.kind == SyncStatus::Kind::failed) throw CommandError(status.text);
    const auto& results = store.sync().lastResults();
    const auto result = results.find(account.id);
    if (result == results.end()) throw CommandError(goneText());
    co_return result->second;
}

/// Until every body is here, or can't be had. Throws what ended the prefetch before that.
Async<void> bodies(Session& session, const MailAccount& account) {
    BodyPrefetch& prefetch = session.app.store().prefetch();
    prefetch.start(account);
    while (prefetch.isRunning(account.id)) {
        session.console.progress(tr("{}: {}", printable(account.email),
                                    trCount("{} message to fetch", "{} messages to fetch",
                                            static_cast<std::size_t>(prefetch.bodiesMissing(account.id)))));
        const auto ended = co_await within(session.app.clock(), look,
                                           [&]() -> Async<void> { co_await prefetch.finished(account.id); });
        if (ended) break;
    }
    // It may have ended between two looks.
    co_await prefetch.finished(account.id);
    if (!session.app.store().environment().account(account.id)) throw CommandError(goneText());
}

Async<json> syncOne(Session& session, const MailAccount& account, bool withBodies) {
    const PassResult result = co_await pass(session, account);
    if (withBodies) co_await bodies(session, account);
    json entry{{"mailboxes", result.mailboxes},
               {"newMessages", result.newMessages},
               {"vanished", result.vanished},
               {"bodiesHeld", session.app.store().prefetch().bodiesHeld(account.id)}};
    if (!session.isJSON()) session.console.line(resultText(account, result));
    co_return entry;
}

Async<void> sync(Session& session, const SyncWords& words) {
    refuseSamples(session);
    co_await session.app.openMail();
    Report report;
    for (const auto& account : chosenAccounts(session, words.account)) {
        json entry{{"account", account.email},
                   {"mailboxes", nullptr},
                   {"newMessages", nullptr},
                   {"vanished", nullptr},
                   {"bodiesHeld", nullptr}};
        auto work = syncOne(session, account, words.withBodies);
        co_await report.add(account, std::move(entry), std::move(work));
    }
    report.end(session);
}

// --- older ----------------------------------------------------------------------------------------------------------

using Meant = std::vector<std::pair<MailAccount, MailboxRecord>>;

/// Of those accounts that have it.
Meant mailboxesMeant(Session& session, const SyncWords& words) {
    Meant meant;
    for (const auto& account : chosenAccounts(session, words.account))
        if (auto mailbox = mailboxMeant(session, account.id, words.mailbox)) meant.emplace_back(account, *mailbox);
    if (meant.empty()) throw noMailbox(words.mailbox);
    return meant;
}

Async<json> olderOfOne(Session& session, const MailAccount& account, const MailboxRecord& mailbox,
                       AccountSync::Backfill extent) {
    auto show = [&session, &account, &mailbox](std::size_t count) {
        session.console.progress(tr("{}: {}: {}", printable(account.email), printable(shownPath(mailbox.path)),
                                    trCount("{} message", "{} messages", count)));
    };
    const std::size_t count =
        co_await session.app.store().sync().fetchOlder(account, mailbox.path, extent, std::move(show));
    if (!session.isJSON())
        session.console.line(tr("{}: {}: {}", printable(account.email), printable(shownPath(mailbox.path)),
                                trCount("{} older message", "{} older messages", count)));
    json entry{{"messages", count}};
    co_return entry;
}

Async<void> older(Session& session, const SyncWords& words) {
    refuseSamples(session);
    co_await session.app.openMail();
    const auto extent = words.all ? AccountSync::Backfill::everything : AccountSync::Backfill::nextStep;
    Report report;
    for (const auto& [account, mailbox] : mailboxesMeant(session, words)) {
        json entry{{"account", account.email}, {"mailbox", shownPath(mailbox.path)}, {"messages", nullptr}};
        auto work = olderOfOne(session, account, mailbox, extent);
        co_await report.add(account, std::move(entry), std::move(work));
    }
    report.end(session);
}

}

void addSyncCommands(CLI::App& program, CommandBody& body) {
    auto words = std::make_shared<SyncWords>();
    auto* syncing = program.add_subcommand("sync", tr("Bring every mailbox up to date, once"));
    syncing->add_option("--account", words->account, tr("Only this account"));
    syncing->add_flag("--bodies", words->withBodies, tr("Fetch the whole messages as well, until none is missing"));
    syncing->callback([words, &body] { body = [words](Session& session) { return sync(session, *words); }; });

    auto olderWords = std::make_shared<SyncWords>();
    auto* fetching = program.add_subcommand("older", tr("Fetch older messages of a mailbox"));
    fetching->add_option("--mailbox", olderWords->mailbox, tr(mailboxWordHelp))->required();
    fetching->add_option("--account", olderWords->account, tr("Only this account"));
    fetching->add_flag("--all", olderWords->all, tr("All of them, to the oldest"));
    fetching->callback(
        [olderWords, &body] { body = [olderWords](Session& session) { return older(session, *olderWords); }; });
}

}
