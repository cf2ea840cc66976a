#include "store/AccountPrefetch.h"

#include "base/Localisation.h"
#include "base/UserError.h"
#include "platform/Log.h"
#include "store/ReadBody.h"

#include <algorithm>
#include <utility>

namespace velmo {

namespace {

constexpr std::size_t batchSize = 200;
/// How often a connection may break while one message is fetched.
constexpr int mostBreaks = 3;
constexpr std::size_t rowsOfWalk = 500;
/// Texts that are indexed in one commit; a search waits for its end.
constexpr std::size_t indexedAtOnce = 16;

bool isPrefetched(const MailboxRecord& mailbox) {
    return mailbox.role() != MailboxRole::junk && mailbox.role() != MailboxRole::trash;
}

}

BodyTable::Missing bodiesToPrefetch(StoreEnvironment& environment, const UUID& accountID) {
    std::vector<std::string> paths;
    for (const MailboxRecord& mailbox : environment.context.mailboxes.of(accountID)) {
        if (isPrefetched(mailbox)) paths.push_back(mailbox.path);
    }
    return {accountID, std::move(paths), environment.settings.date(bodyCutoffKey(accountID))};
}

Async<void> AccountPrefetch::run(MailAccount account) {
    BodyFetch fetch(environment_, engines_, *downloads_, *budget_, suspects_, account);
    std::exception_ptr failure;
    try {
        co_await callOn(environment_.executors.background, [&] { environment_.files.dropStaged(account.id); });
        const auto refusals = environment_.bodyIndex.refusals();
        const Compared before = co_await compared(account.id);
        if (complete_ != before) co_await fillIndex(account.id);
        co_await fetchMissing(account.id, fetch);
        const Compared after = co_await compared(account.id);
        complete_.reset();
        if (environment_.bodyIndex.refusals() == refusals) complete_ = after;
    } catch (...) {
        failure = std::current_exception();
    }
    tellRefusal(account, fetch.refusal());
    co_await ignoreCancellation();
    co_await fetch.close();
    co_await allowCancellation();
    if (failure) std::rethrow_exception(failure);
}

/// Stands until a run brings everything.
void AccountPrefetch::tellRefusal(const MailAccount& account, const std::optional<std::string>& refusal) {
    const std::string key = "bodies." + account.id.text();
    if (refusal)
        environment_.troubles.add(key, account.id,
                                  tr("The server would not give the text of some messages of {}; it is asked again. {}",
                                     account.email, *refusal));
    else
        environment_.troubles.settle(key);
}

/// Whoever opens it is told what is wrong with it.
bool AccountPrefetch::isHopeless(std::int64_t id) const {
    const auto found = suspects_.find(id);
    return found != suspects_.end() && found->second >= mostBreaks;
}

Async<void> AccountPrefetch::checkStop() {
    co_await checkCancellation();
    if (isStopped_) throw Cancelled();
}

// --- The index -------------------------------------------------------------------------------------------------

/// A walk over the messages with a body. Used on the main and the background executor in turns.
struct AccountPrefetch::Backfill {
    UUID accountID;
    std::unique_ptr<ModelContext> context;
    std::set<std::string> indexed;
    std::int64_t lastID = 0;
    std::vector<BodyRow> unindexed; ///< of the present step of the walk
    std::vector<BodyRow> missing;   ///< whose file is not there
    std::size_t indexedCount = 0;
    std::size_t missingCount = 0;

    bool needsText(const BodyRow& row) const {
        return !row.messageID.value_or("").empty() && !indexed.contains(*row.messageID);
    }

    /// False behind the last row.
    bool readRows() {
        const auto rows = context->bodies.held(accountID, lastID, rowsOfWalk);
        if (rows.empty()) return false;
        lastID = rows.back().id;
        unindexed.clear();
        std::ranges::copy_if(rows, std::back_inserter(unindexed), [this](const auto& row) { return needsText(row); });
        return true;
    }
};

Async<AccountPrefetch::Compared> AccountPrefetch::compared(UUID accountID) {
    co_return co_await callOn(environment_.executors.background, [&] {
        Compared found;
        found.bodiesHeld = environment_.context.container()->makeContext()->bodies.heldCount(accountID);
        found.indexVersion = environment_.bodyIndex.version();
        return found;
    });
}

Async<void> AccountPrefetch::fillIndex(UUID accountID) {
    Backfill backfill;
    backfill.accountID = accountID;
    co_await callOn(environment_.executors.background, [&] {
        backfill.context = environment_.context.container()->makeContext();
        backfill.indexed = environment_.bodyIndex.allMessageIDs();
    });
    while (co_await callOn(environment_.executors.background, [&backfill] { return backfill.readRows(); }))
        co_await indexHeld(backfill);
    if (backfill.indexedCount > 0) log("Mail").info("Indexed {} saved messages for search", backfill.indexedCount);
    if (backfill.missingCount > 0) {
        log("Mail").info("{} saved messages were missing on disk; they'll download again", backfill.missingCount);
    }
}

Async<void> AccountPrefetch::indexHeld(Backfill& backfill) {
    std::span<const BodyRow> rest(backfill.unindexed);
    while (!rest.empty()) {
        const auto step = rest.first(std::min(rest.size(), indexedAtOnce));
        rest = rest.subspan(step.size());
        co_await callOn(environment_.executors.background, [&] { indexStep(backfill, step); });
    }
    co_await forgetMissing(backfill);
}

void AccountPrefetch::indexStep(Backfill& backfill, std::span<const BodyRow> rows) {
    std::vector<BodyIndex::Document> documents;
    for (const BodyRow& row : rows) {
        if (textless_.contains(row.id)) continue;
        const auto source = environment_.files.loadBody(row.key);
        if (!source) {
            backfill.missing.push_back(row);
            continue;
        }
        auto text = readBody(*source).indexText;
        if (text.empty())
            textless_.insert(row.id);
        else
            documents.push_back({*row.messageID, std::move(text)});
    }
    backfill.indexedCount += environment_.bodyIndex.add(documents, backfill.accountID);
    for (auto& document : documents) backfill.indexed.insert(std::move(document.messageID));
}

Async<void> AccountPrefetch::forgetMissing(Backfill& backfill) {
    if (backfill.missing.empty()) co_return;
    std::function<void(ModelContext&)> work = [&](ModelContext& context) {
        const BodyTable::Outcome without;
        for (const BodyRow& row : backfill.missing) context.bodies.record(row, without);
    };
    co_await environment_.writer.write(std::move(work));
    backfill.missingCount += std::exchange(backfill.missing, {}).size();
}

// --- The bodies ------------------------------------------------------------------------------------------------

Async<void> AccountPrefetch::fetchMissing(UUID accountID, BodyFetch& fetch) {
    std::set<std::int64_t> skipped;
    for (;;) {
        co_await checkStop();
        auto batch = co_await nextBatch(accountID, skipped);
        if (batch.empty()) co_return;
        auto withoutBody = co_await fetch.fetch(std::move(batch));
        skipped.merge(withoutBody);
        if (co_await budget_->isExceeded()) {
            co_await budget_->evict();
            co_return;
        }
    }
}

Async<std::vector<BodyRow>> AccountPrefetch::nextBatch(UUID accountID, std::set<std::int64_t>& skipped) {
    std::vector<BodyRow> batch;
    for (;;) {
        const auto missing = bodiesToPrefetch(environment_, accountID);
        const std::size_t limit = batchSize + skipped.size();
        auto rows = co_await callOn(environment_.executors.background, [&] {
            return environment_.context.container()->makeContext()->bodies.missing(missing, limit);
        });
        const bool isLast = rows.size() < limit;
        for (BodyRow& row : rows) {
            if (skipped.contains(row.id)) continue;
            if (row.size > largestMessage_ || isHopeless(row.id))
                skipped.insert(row.id);
            else if (batch.size() < batchSize)
                batch.push_back(std::move(row));
        }
        // Behind two hundred that are too large there may be others.
        if (!batch.empty() || isLast) co_return batch;
    }
}

}
