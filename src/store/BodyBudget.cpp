#include "store/BodyBudget.h"

#include "platform/FileError.h"
#include "platform/Log.h"

#include <algorithm>

namespace velmo {

namespace {

constexpr std::int64_t fileBlock = 4096;
constexpr std::size_t evictionStep = 500;

}

std::string bodyCutoffKey(const UUID& accountID) {
    return "bodyCutoff." + accountID.text();
}

// --- Counting --------------------------------------------------------------------------------------------------

void BodyBudget::add(std::int64_t bytes) {
    if (stored_) *stored_ += (bytes + fileBlock - 1) / fileBlock * fileBlock;
}

Async<bool> BodyBudget::isExceeded() {
    const bool isFresh = !stored_;
    if (isFresh) co_await count();
    // Bodies also go with their messages, which nobody tells here.
    if (!isFresh && *stored_ > mostStored_) co_await count();
    co_return *stored_ > mostStored_;
}

Async<void> BodyBudget::count() {
    stored_ = co_await callOn(environment_.executors.background, [this] { return environment_.files.storedBytes(); });
}

// --- Eviction --------------------------------------------------------------------------------------------------

Async<void> BodyBudget::evict() {
    if (isEvicting_) co_return;
    isEvicting_ = true;
    std::exception_ptr failure;
    try {
        co_await evictOldest();
    } catch (...) {
        failure = std::current_exception();
    }
    isEvicting_ = false;
    if (failure) std::rethrow_exception(failure);
}

Async<void> BodyBudget::evictOldest() {
    const auto rows = co_await callOn(environment_.executors.background, [this] {
        return environment_.context.container()->makeContext()->bodies.oldestHeld(evictedAtOnce);
    });
    std::span<const BodyRow> rest(rows);
    while (!rest.empty() && *stored_ > storedAfterEviction_) {
        auto step = rest.first(std::min(rest.size(), evictionStep));
        const std::int64_t excess = *stored_ - storedAfterEviction_;
        const auto freed =
            co_await callOn(environment_.executors.background, [&] { return deleteFiles(step, excess); });
        *stored_ -= freed; // others add to it meanwhile
        co_await recordEvicted(step);
        rest = rest.subspan(step.size());
    }
}

/// Deletes until so many bytes are free; gives how many are, and shortens `rows` to those that went. The files go
/// before the marks: a record without its file is noticed when it is opened, a file without a record never.
std::int64_t BodyBudget::deleteFiles(std::span<const BodyRow>& rows, std::int64_t excess) const {
    std::int64_t freed = 0;
    std::size_t count = 0;
    for (; count < rows.size() && freed < excess; ++count) {
        freed += environment_.files.bodyFileSize(rows[count].key);
        environment_.files.deleteBody(rows[count].key);
    }
    rows = rows.first(count);
    return freed;
}

Async<void> BodyBudget::recordEvicted(std::span<const BodyRow> rows) {
    std::function<void(ModelContext&)> work = [&](ModelContext& context) {
        const BodyTable::Outcome without;
        for (const BodyRow& row : rows) context.bodies.record(row, without);
    };
    co_await environment_.writer.write(std::move(work));
    std::map<UUID, Date> newest;
    for (const BodyRow& row : rows) newest[row.key.accountID] = row.date; // they come by rising date
    for (const auto& [accountID, date] : newest) raiseCutoff(accountID, date);
}

void BodyBudget::raiseCutoff(const UUID& accountID, Date date) {
    if (!environment_.account(accountID)) return;
    const std::string key = bodyCutoffKey(accountID);
    try {
        if (environment_.settings.date(key).value_or(Date::min()) < date) environment_.settings.setDate(key, date);
    } catch (const FileError& error) {
        log("Mail").error("Couldn't keep a cut-off date: {}", pub(error.sentence()));
    }
}

}
