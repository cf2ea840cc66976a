#include "terminal/SyncCommands.h"

#include "base/Localisation.h"
#include "base/Text.h"

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

// --- sync -----------------------------------------------------------------------------------------------------------

std::string progressText(const MailAccount& account, const PassProgress& progress) {
    return tr("{}: {} ({} of {})", printable(account.email), printable(progress.mailbox), progress.position,
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
    co_return store.sync().lastResults().at(account.id);
}

/// Until every body is here, or can't be had.
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
}

/// A failing account does not keep the others from their pass.
Async<void> sync(Session& session, const SyncWords& words) {
    refuseSamples(session);
    co_await session.app.openMail();
    auto document = json::array();
    std::string failure;
    for (const auto& account : chosenAccounts(session, words.account)) {
        json entry{{"account", account.email}};
        try {
            const PassResult result = co_await pass(session, account);
            if (words.withBodies) co_await bodies(session, account);
            entry["mailboxes"] = result.mailboxes;
            entry["newMessages"] = result.newMessages;
            entry["vanished"] = result.vanished;
            if (words.withBodies) entry["bodiesHeld"] = session.app.store().prefetch().bodiesHeld(account.id);
            if (!session.isJSON()) session.console.line(resultText(account, result));
        } catch (const UserError& error) {
            entry["error"] = error.sentence();
            failure += (failure.empty() ? "" : "\n") + printable(account.email + ": " + error.sentence());
        }
        document.push_back(std::move(entry));
    }
    session.tellNotices();
    if (session.isJSON()) session.print(document);
    if (!failure.empty()) throw CommandError(failure);
}

// --- older ----------------------------------------------------------------------------------------------------------

/// The one mailbox that is meant: by its path, or by its role where one account is meant.
MailboxRecord mailboxMeant(Session& session, const MailAccount& account, const std::string& word) {
    const auto role = mailboxRoleFrom(text::lowered(word));
    if (role)
        if (auto found = session.app.store().mailboxes().mailbox(*role, account.id)) return *std::move(found);
    auto found = session.app.mail().mailboxes.find(MailboxKey{account.id, canonicalMailboxPath(word)});
    if (!found) throw CommandError(tr("There is no mailbox {}.", printable(text::repairedUTF8(word))));
    return *std::move(found);
}

Async<void> older(Session& session, const SyncWords& words) {
    refuseSamples(session);
    co_await session.app.openMail();
    auto document = json::array();
    for (const auto& account : chosenAccounts(session, words.account)) {
        const MailboxRecord mailbox = mailboxMeant(session, account, words.mailbox);
        auto show = [&session, &account, &mailbox](std::size_t count) {
            session.console.progress(tr("{}: {}: {}", printable(account.email), printable(mailbox.path),
                                        trCount("{} message", "{} messages", count)));
        };
        const auto extent = words.all ? AccountSync::Backfill::everything : AccountSync::Backfill::nextStep;
        const std::size_t count =
            co_await session.app.store().sync().fetchOlder(account, mailbox.path, extent, std::move(show));
        document.push_back({{"account", account.email}, {"mailbox", mailbox.path}, {"messages", count}});
        if (!session.isJSON())
            session.console.line(tr("{}: {}: {}", printable(account.email), printable(mailbox.path),
                                    trCount("{} older message", "{} older messages", count)));
    }
    if (session.isJSON()) session.print(document);
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
    fetching->add_option("--mailbox", olderWords->mailbox, tr("A role (inbox, sent, archive…) or a path"))->required();
    fetching->add_option("--account", olderWords->account, tr("Only this account"));
    fetching->add_flag("--all", olderWords->all, tr("All of them, to the oldest"));
    fetching->callback(
        [olderWords, &body] { body = [olderWords](Session& session) { return older(session, *olderWords); }; });
}

}
