#include "store/BodyPrefetch.h"

#include "base/Task.h"
#include "base/UserError.h"
#include "platform/Log.h"
#include "store/AccountPrefetch.h"

#include <utility>

namespace velmo {

struct BodyPrefetch::Run {
    Run(StoreEnvironment& environment, AccountEngines& engines, std::shared_ptr<BodyDownloads> downloads,
        std::shared_ptr<BodyBudget> budget, std::int64_t largestMessage)
        : prefetch(environment, engines, std::move(downloads), std::move(budget), largestMessage) {}

    static Async<void> work(std::shared_ptr<Run> self, MailAccount account);

    AccountPrefetch prefetch;
    Task task;
    bool isWorking = false;
    bool isToLookAgain = false;
};

/// `isWorking` falls together with the last look, so that nobody asks for another one in vain.
Async<void> BodyPrefetch::Run::work(std::shared_ptr<Run> self, MailAccount account) {
    std::exception_ptr failure;
    try {
        do {
            self->isToLookAgain = false;
            co_await self->prefetch.run(account);
        } while (self->isToLookAgain);
    } catch (...) {
        failure = std::current_exception();
    }
    self->isWorking = false;
    if (!failure) co_return;
    if (!isCancellation(failure))
        log("Mail").error("Prefetch failed for {}: {}", priv(account.email), pub(sentenceOf(failure)));
    std::rethrow_exception(failure);
}

BodyPrefetch::BodyPrefetch(StoreEnvironment& environment, AccountEngines& engines,
                           std::shared_ptr<BodyDownloads> downloads, BodyPrefetchLimits limits)
    : environment_(environment),
      engines_(engines),
      downloads_(std::move(downloads)),
      limits_(limits),
      budget_(std::make_shared<BodyBudget>(environment, limits.mostStored, limits.storedAfterEviction)) {}

BodyPrefetch::~BodyPrefetch() {
    for (const auto& [id, run] : runs_) stop(*run);
}

void BodyPrefetch::start(const MailAccount& account) {
    if (environment_.isShowingSamples) return;
    auto& run = runs_[account.id];
    if (!run) run = std::make_shared<Run>(environment_, engines_, downloads_, budget_, limits_.largestMessage);
    if (run->isWorking) {
        run->isToLookAgain = true;
        return;
    }
    run->isWorking = true;
    auto body = [run, account]() -> Async<void> { return Run::work(run, account); };
    run->task = Task(environment_.executors.main, std::move(body));
}

void BodyPrefetch::noteStored(std::size_t bytes) {
    budget_->add(static_cast<std::int64_t>(bytes));
}

bool BodyPrefetch::isRunning(const UUID& accountID) const {
    const auto found = runs_.find(accountID);
    return found != runs_.end() && found->second->isWorking;
}

Async<void> BodyPrefetch::finished(UUID accountID) {
    const auto found = runs_.find(accountID);
    if (found == runs_.end()) co_return;
    const auto run = found->second;
    co_await run->task.finished();
}

// --- Ending ----------------------------------------------------------------------------------------------------

void BodyPrefetch::stop(Run& run) {
    run.prefetch.stop();
    run.task.cancel();
}

Async<void> BodyPrefetch::end(std::shared_ptr<Run> run) {
    stop(*run);
    try {
        co_await run->task.finished();
    } catch (const std::exception&) {
        // What ended it is in the log.
    }
}

Async<void> BodyPrefetch::cancel(UUID accountID) {
    if (const auto run = runs_.extract(accountID)) co_await end(run.mapped());
}

Async<void> BodyPrefetch::cancelAll() {
    auto runs = std::exchange(runs_, {});
    for (const auto& [id, run] : runs) stop(*run);
    for (const auto& [id, run] : runs) co_await end(run);
}

// --- Counts ----------------------------------------------------------------------------------------------------

std::int64_t BodyPrefetch::bodiesHeld(const UUID& accountID) const {
    return environment_.context.bodies.heldCount(accountID);
}

std::int64_t BodyPrefetch::bodiesMissing(const UUID& accountID) const {
    return environment_.context.bodies.missingCount(bodiesToPrefetch(environment_, accountID));
}

}
