#include "terminal/StatusCommands.h"

#include "base/Localisation.h"
#include "terminal/DateWords.h"
#include "terminal/MessageRows.h"
#include "terminal/TroubleLines.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <memory>
#include <nlohmann/json.hpp>

namespace velmo {

namespace {

using nlohmann::json;

// --- status ---------------------------------------------------------------------------------------------------------

/// The end of the last check in this run, or else of the last sync that any run has stored.
std::optional<Date> lastChecked(Session& session, const UUID& accountID) {
    const auto& all = session.app.store().status().lastChecked.get();
    if (const auto found = all.find(accountID); found != all.end()) return found->second;
    std::optional<Date> last;
    for (const auto& mailbox : session.app.mail().mailboxes.of(accountID)) last = std::max(last, mailbox.lastSynced);
    return last;
}

std::string wordOf(SyncStatus::Kind kind) {
    switch (kind) {
    case SyncStatus::Kind::syncing: return "syncing";
    case SyncStatus::Kind::failed: return "failed";
    case SyncStatus::Kind::idle: break;
    }
    return "idle";
}

std::string shownWord(SyncStatus::Kind kind) {
    switch (kind) {
    case SyncStatus::Kind::syncing: return tr("syncing");
    case SyncStatus::Kind::failed: return tr("failed");
    case SyncStatus::Kind::idle: break;
    }
    return tr("idle");
}

json jsonOf(const std::optional<Banner>& banner) {
    if (!banner) return nullptr;
    return {{"text", banner->text}, {"canUndo", banner->canUndo}, {"isError", banner->isError}};
}

/// `dismissed` is the number of a failure that the person has dealt with, or empty.
Async<void> status(Session& session, const std::string& dismissed) {
    co_await session.app.openMail();
    if (!dismissed.empty()) dismissTrouble(session, dismissed);
    MailStore& store = session.app.store();
    const Date now = session.app.clock().now();
    auto accounts = json::array();
    std::vector<std::vector<std::string>> rows{
        {tr("Account"), tr("Status"), tr("Checked"), tr("Bodies"), tr("Missing"), ""}};
    for (const auto& account : session.app.mailAccounts()) {
        const SyncStatus state = store.status().of(account.id);
        const auto checked = lastChecked(session, account.id);
        const auto held = store.prefetch().bodiesHeld(account.id);
        const auto missing = store.prefetch().bodiesMissing(account.id);
        accounts.push_back({{"account", account.email},
                            {"status", wordOf(state.kind)},
                            {"error", state.text.empty() ? json(nullptr) : json(state.text)},
                            {"lastChecked", checked ? json(iso8601(*checked)) : json(nullptr)},
                            {"bodiesHeld", held},
                            {"bodiesMissing", missing}});
        rows.push_back({printable(account.email), shownWord(state.kind),
                        checked ? shortDate(*checked, now) : std::string("–"), std::to_string(held),
                        std::to_string(missing), printable(state.text)});
    }
    const auto indexBytes = store.bodyIndex().fileSize();
    if (session.isJSON()) {
        session.print({{"accounts", std::move(accounts)},
                       {"banner", jsonOf(store.status().banner.get())},
                       {"isRunning", session.place == Session::Place::application},
                       {"indexBytes", indexBytes},
                       {"troubles", jsonOfTroubles(session)}});
        session.app.store().troubles().takeUntold();
        co_return;
    }
    for (const auto& line : tableLines(rows)) session.console.line(line);
    session.console.line(tr("Search index: {} kB", indexBytes / 1000));
    if (const auto& banner = store.status().banner.get()) session.console.line(printable(banner->text));
    for (const auto& line : troubleLines(session)) session.console.line(line);
    store.troubles().takeUntold();
}

// --- watch ----------------------------------------------------------------------------------------------------------

/// The records of messages that arrived in an inbox.
std::vector<MessageRecord> arrivals(Session& session, const MailAccount& account,
                                    const std::vector<SyncedMessage>& messages) {
    std::vector<MessageRecord> records;
    const auto inbox = session.app.store().mailboxes().mailbox(MailboxRole::inbox, account.id);
    if (!inbox) return records;
    for (const auto& message : messages)
        if (auto record = session.app.mail().messages.find(inbox->key(), message.uid))
            records.push_back(*std::move(record));
    std::ranges::reverse(records);
    return records;
}

/// With `--json`, one document a message.
void printArrivals(Session& session, const std::vector<MessageRecord>& records) {
    if (session.isJSON())
        for (const auto& document : jsonOfRows(session, records))
            session.console.line(textOf(document, JSONForm::oneLine));
    else
        printRows(session, records);
    session.console.flush();
}

/// Until it is cancelled. In a process of its own the accounts are kept in step meanwhile.
Async<void> watch(Session& session) {
    co_await session.app.openMail();
    if (session.app.isShowingSamples())
        throw CommandError(tr("There is no account yet. Add one with: velmo accounts add --email YOU@…"));
    MailStore& store = session.app.store();
    const ScopedConnection hearing =
        store.mailArrived().connect([&session](const MailAccount& account, const std::vector<SyncedMessage>& messages) {
            printArrivals(session, arrivals(session, account, messages));
        });
    const ScopedConnection failing = store.troubles().all.onChange([&session] { tellTroubles(session); });
    if (session.place == Session::Place::ownProcess) co_await store.start();
    constexpr Duration hour{3'600'000};
    for (;;) co_await session.app.clock().wait(hour);
}

}

void addStatusCommands(CLI::App& program, CommandBody& body) {
    auto* telling = program.add_subcommand("status", tr("Show how each account stands"));
    auto dismissed = std::make_shared<std::string>();
    telling->add_option("--dismiss", *dismissed, tr("Strike something that failed from the list: its number, or all"));
    telling->callback(
        [dismissed, &body] { body = [dismissed](Session& session) { return status(session, *dismissed); }; });
    auto* watching = program.add_subcommand("watch", tr("Show new mail as it arrives, until interrupted"));
    watching->callback([&body] { body = watch; });
}

}
