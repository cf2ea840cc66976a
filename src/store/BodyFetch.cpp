#include "store/BodyFetch.h"

#include "base/UserError.h"
#include "store/ReadBody.h"

#include <algorithm>
#include <deque>
#include <map>
#include <mutex>
#include <span>
#include <string>
#include <utility>

namespace velmo {

namespace {

constexpr std::size_t messagesOfSlice = 4;
/// What a connection holds in memory at a time, unless one message alone is larger.
constexpr std::int64_t bytesOfSlice = 10'000'000;

constexpr std::size_t adoptedAtOnce = 16;

/// In a mailbox, without a body in between.
constexpr int mostRefusals = 20;

/// Texts that are indexed in one commit: many small commits are many merges later on, but a search waits for the end of
/// one.
constexpr std::size_t textsAtOnce = 32;
constexpr std::size_t bytesOfTexts = 500'000;

/// Calls `operation(0)` to `operation(3)`, and runs the four at the same time.
template <class Operation>
Async<void> onEachConnection(Operation& operation) {
    static_assert(BodyFetch::connections == 4);
    const auto firstTwo = [&operation] {
        return both([&operation] { return operation(0); }, [&operation] { return operation(1); });
    };
    const auto lastTwo = [&operation] {
        return both([&operation] { return operation(2); }, [&operation] { return operation(3); });
    };
    co_await both([&firstTwo] { return firstTwo(); }, [&lastTwo] { return lastTwo(); });
}

}

/// What one command fetches.
struct BodyFetch::Slice {
    std::vector<BodyRow> rows; ///< of one mailbox
    std::int64_t bytes = 0;

    const std::string& path() const { return rows.front().key.mailboxPath; }
    bool hasRoomFor(const BodyRow& row) const {
        return rows.size() < messagesOfSlice && bytes + row.size <= bytesOfSlice;
    }
};

namespace {

/// Takes bodies apart, and indexes their texts, many at once. Used from any thread.
class Texts {
  public:
    Texts(BodyIndex& index, const UUID& accountID) : index_(index), accountID_(accountID) {}

    /// Gives the snippet.
    std::string add(const BodyRow& row, BytesView source) {
        ReadBody body = readBody(source);
        if (!row.messageID.value_or("").empty() && !body.indexText.empty())
            add({*row.messageID, std::move(body.indexText)});
        return std::move(body.snippet);
    }

    void addRest() { index_.add(take(), accountID_); }

  private:
    void add(BodyIndex::Document document) {
        std::unique_lock lock(mutex_);
        bytes_ += document.body.size();
        waiting_.push_back(std::move(document));
        const bool isEnough = waiting_.size() >= textsAtOnce || bytes_ >= bytesOfTexts;
        lock.unlock();
        if (isEnough) addRest();
    }

    std::vector<BodyIndex::Document> take() {
        const std::lock_guard guard(mutex_);
        bytes_ = 0;
        return std::exchange(waiting_, {});
    }

    BodyIndex& index_;
    UUID accountID_;
    std::mutex mutex_; // guards what follows
    std::vector<BodyIndex::Document> waiting_;
    std::size_t bytes_ = 0;
};

}

/// A body that is here, in its file or on the way into it.
struct BodyFetch::Kept {
    BodyRow row;
    std::string snippet;
    std::optional<StagedFile> staged;
    std::int64_t bytes = 0; ///< of what is staged
};

struct BodyFetch::Batch {
    Batch(std::vector<BodyRow> wanted, BodyIndex& index, const UUID& accountID)
        : rows(std::move(wanted)), texts(index, accountID) {}

    std::vector<BodyRow> rows;
    Texts texts;
    std::deque<Slice> waiting;
    std::vector<Kept> kept;
    std::exception_ptr failure;

    std::set<std::int64_t> withoutBody() const {
        std::set<std::int64_t> ids;
        for (const BodyRow& row : rows) ids.insert(row.id);
        for (const Kept& one : kept) ids.erase(one.row.id);
        return ids;
    }
};

/// What has broken a connection comes last, and alone.
std::vector<BodyFetch::Slice> BodyFetch::slices(std::vector<BodyRow> rows) const {
    std::vector<Slice> slices;
    std::vector<Slice> alone;
    std::map<std::string, std::size_t> open; // the last slice of each mailbox
    for (BodyRow& row : rows) {
        if (suspects_.contains(row.id)) {
            alone.emplace_back().rows.push_back(std::move(row));
            continue;
        }
        const auto [found, isNew] = open.try_emplace(row.key.mailboxPath, slices.size());
        if (!isNew && !slices[found->second].hasRoomFor(row)) found->second = slices.size();
        if (found->second == slices.size()) slices.emplace_back();
        Slice& slice = slices[found->second];
        slice.bytes += row.size;
        slice.rows.push_back(std::move(row));
    }
    std::ranges::move(alone, std::back_inserter(slices));
    return slices;
}

Async<std::set<std::int64_t>> BodyFetch::fetch(std::vector<BodyRow> rows) {
    Batch batch(std::move(rows), environment_.bodyIndex, account_.id);
    try {
        co_await adoptFiles(batch);
        co_await download(batch);
    } catch (...) {
        batch.failure = std::current_exception();
    }
    // Also what a cancelled batch has brought is kept.
    co_await ignoreCancellation();
    co_await keepFiles(batch);
    co_await record(batch);
    co_await allowCancellation();
    if (batch.failure) std::rethrow_exception(batch.failure);
    co_return batch.withoutBody();
}

/// A crash leaves files whose records were not marked.
Async<void> BodyFetch::adoptFiles(Batch& batch) {
    std::span<const BodyRow> rest(batch.rows);
    while (!rest.empty()) {
        const auto step = rest.first(std::min(rest.size(), adoptedAtOnce));
        rest = rest.subspan(step.size());
        co_await callOn(environment_.executors.background, [&] {
            for (const BodyRow& row : step) {
                const auto source = environment_.files.loadBody(row.key);
                if (source) batch.kept.push_back({row, batch.texts.add(row, *source), {}, 0});
            }
        });
    }
}

Async<void> BodyFetch::download(Batch& batch) {
    const auto missing = batch.withoutBody();
    std::vector<BodyRow> rows;
    for (const BodyRow& row : batch.rows) {
        if (missing.contains(row.id)) rows.push_back(row);
    }
    for (Slice& slice : slices(std::move(rows))) batch.waiting.push_back(std::move(slice));
    const auto worker = [this, &batch](std::size_t connection) { return work(connection, batch); };
    co_await onEachConnection(worker);
}

/// Fetches slices until there are none, or a connection has failed.
Async<void> BodyFetch::work(std::size_t connection, Batch& batch) {
    while (!batch.waiting.empty() && !batch.failure) {
        Slice slice = std::move(batch.waiting.front());
        batch.waiting.pop_front();
        if (refusalsInARow_[slice.path()] >= mostRefusals) continue;
        std::optional<IMAPError> refusal;
        try {
            co_await fetchSlice(connection, slice, batch);
            if (!slice.rows.empty()) refusalsInARow_[slice.path()] = 0;
        } catch (const IMAPError& error) {
            if (error.kind() == IMAPError::Kind::commandFailed)
                refusal = error;
            else if (!batch.failure)
                batch.failure = std::current_exception();
        } catch (...) {
            if (!batch.failure) batch.failure = std::current_exception();
        }
        if (refusal) refused(std::move(slice), *refusal, batch);
    }
}

/// A slice that is refused is halved, until what is refused stands alone. A mailbox of which nothing comes any more is
/// left to a later run.
void BodyFetch::refused(Slice slice, const IMAPError& error, Batch& batch) {
    refusal_ = error.sentence();
    ++refusalsInARow_[slice.path()];
    if (slice.rows.size() < 2) return;
    const auto middle = slice.rows.begin() + static_cast<std::ptrdiff_t>(slice.rows.size() / 2);
    Slice second;
    second.rows.assign(std::move_iterator(middle), std::move_iterator(slice.rows.end()));
    slice.rows.erase(middle, slice.rows.end());
    batch.waiting.push_front(std::move(second));
    batch.waiting.push_front(std::move(slice));
}

void BodyFetch::suspect(const Slice& slice) {
    const int breaks = slice.rows.size() == 1 ? 1 : 0;
    for (const BodyRow& row : slice.rows) suspects_[row.id] += breaks;
}

Async<void> BodyFetch::fetchSlice(std::size_t connection, Slice& slice, Batch& batch) {
    std::erase_if(slice.rows, [this](const BodyRow& row) { return downloads_.contains(row.id); });
    if (slice.rows.empty()) co_return;
    std::set<std::int64_t> ids;
    std::vector<std::uint32_t> uids;
    for (const BodyRow& row : slice.rows) {
        ids.insert(row.id);
        uids.push_back(static_cast<std::uint32_t>(row.key.uid));
    }
    const auto mark = downloads_.mark(std::move(ids));
    auto& engine = pool_[connection];
    if (!engine) engine = engines_.makeEngine(account_);
    co_await engine->connectedClient();
    std::map<std::uint32_t, Bytes> sources;
    try {
        sources = co_await engine->fetchRawMessages(slice.path(), slice.rows.front().key.uidValidity, std::move(uids));
    } catch (const IMAPError& error) {
        if (error.kind() != IMAPError::Kind::commandFailed) suspect(slice);
        throw;
    }
    for (const BodyRow& row : slice.rows) suspects_.erase(row.id);

    std::vector<Kept> kept;
    co_await callOn(environment_.executors.background, [&] {
        for (const BodyRow& row : slice.rows) {
            const auto found = sources.find(static_cast<std::uint32_t>(row.key.uid));
            if (found == sources.end()) continue;
            StagedFile staged = environment_.files.stageBody(found->second, row.key);
            const auto bytes = static_cast<std::int64_t>(found->second.size());
            kept.push_back({row, batch.texts.add(row, found->second), std::move(staged), bytes});
        }
    });
    batch.kept.insert(batch.kept.end(), std::move_iterator(kept.begin()), std::move_iterator(kept.end()));
}

/// A record must not claim a body before the disk has it.
Async<void> BodyFetch::keepFiles(Batch& batch) {
    std::vector<StagedFile> staged;
    for (Kept& one : batch.kept) {
        if (one.staged) staged.push_back(std::move(*one.staged));
    }
    std::exception_ptr failure;
    try {
        co_await callOn(environment_.executors.background, [&] {
            batch.texts.addRest();
            environment_.files.keep(std::move(staged));
        });
    } catch (...) {
        failure = std::current_exception();
    }
    if (failure) {
        if (!batch.failure) batch.failure = failure;
        std::erase_if(batch.kept, [](const Kept& one) { return one.staged.has_value(); });
    }
    for (const Kept& one : batch.kept) budget_.add(one.bytes);
}

/// A message that went meanwhile took its files with it, but not the one that was written since.
Async<void> BodyFetch::record(const Batch& batch) {
    std::vector<BodyKey> gone;
    std::function<void(ModelContext&)> work = [&](ModelContext& context) {
        for (const Kept& one : batch.kept) {
            BodyTable::Outcome outcome;
            outcome.hasBody = true;
            outcome.snippet = one.snippet;
            if (!context.bodies.record(one.row, outcome)) gone.push_back(one.row.key);
        }
    };
    co_await environment_.writer.write(std::move(work));
    if (gone.empty()) co_return;
    co_await callOn(environment_.executors.background, [&] {
        for (const BodyKey& key : gone) environment_.files.deleteBody(key);
    });
}

Async<void> BodyFetch::close() {
    const auto disconnect = [this](std::size_t connection) -> Async<void> {
        const auto engine = std::exchange(pool_[connection], nullptr);
        if (engine) co_await engine->disconnect();
    };
    co_await onEachConnection(disconnect);
}

}
