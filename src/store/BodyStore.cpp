#include "store/BodyStore.h"

#include "base/UserError.h"
#include "platform/FileError.h"
#include "platform/Log.h"
#include "store/AccountGone.h"
#include "store/ReadBody.h"
#include "store/SampleMail.h"

#include <utility>

namespace velmo {

struct BodyStore::Load {
    Task task;
    MessageCache::EntryPointer entry;
    std::shared_ptr<const Bytes> source; ///< absent when it was read from the file
};

struct BodyStore::Loaded {
    ReadBody body;
    bool isInFiles = false;
    std::shared_ptr<const Bytes> source;
};

namespace {

void logDuration(std::string_view label, const Clock& clock, Instant start) {
    const auto taken = std::chrono::duration_cast<Duration>(clock.instant() - start);
    log("Mail").info("{} (took {} ms)", pub(label), taken.count());
}

/// A file that can't be written leaves the message to be downloaded again.
bool save(const MessageFiles& files, BytesView source, const BodyKey& key) {
    try {
        files.saveBody(source, key);
        return true;
    } catch (const FileError& error) {
        log("Mail").warning("Couldn't keep a message body: {}", pub(error.sentence()));
        return false;
    }
}

void index(BodyIndex& bodyIndex, const MessageRecord& record, const ReadBody& body) {
    if (record.messageID.value_or("").empty() || body.indexText.empty()) return;
    bodyIndex.add(*record.messageID, record.accountID, body.indexText);
}

BodyRow rowOf(const MessageRecord& record) {
    return {record.id, BodyKey::of(record), record.messageID, record.date, record.size};
}

}

BodyStore::BodyStore(StoreEnvironment& environment, AccountEngines& engines, std::shared_ptr<BodyDownloads> downloads)
    : environment_(environment), engines_(engines), downloads_(std::move(downloads)) {}

// --- What is asked for -----------------------------------------------------------------------------------------

MessageCache::EntryPointer BodyStore::cached(const MessageRecord& record) const {
    return cache_->find(MessageCache::key(record));
}

Async<MessageCache::EntryPointer> BodyStore::content(MessageRecord record) {
    if (auto entry = cached(record)) co_return entry;
    const auto done = co_await load(std::move(record));
    co_return done->entry;
}

Async<Bytes> BodyStore::source(MessageRecord record) {
    if (environment_.isShowingSamples) co_return sample(record);
    const auto self = shared_from_this();
    const BodyKey key = BodyKey::of(record);
    for (;;) {
        auto held =
            co_await callOn(environment_.executors.background, [&] { return environment_.files.loadBody(key); });
        if (held) co_return std::move(*held);
        const auto done = co_await load(record);
        if (done->source) co_return *done->source;
    }
}

Bytes BodyStore::sample(const MessageRecord& record) const {
    const auto uid = static_cast<std::uint32_t>(record.uid);
    auto source = sampleSource(record.mailboxPath, uid, environment_.clock->now());
    if (!source) throw AccountGone();
    return std::move(*source);
}

// --- Loading ---------------------------------------------------------------------------------------------------

Async<std::shared_ptr<BodyStore::Load>> BodyStore::load(MessageRecord record) {
    std::erase_if(loads_, [](const auto& entry) { return entry.second.expired(); });
    auto& known = loads_[MessageCache::key(record)];
    auto shared = known.lock();
    if (!shared) {
        shared = std::make_shared<Load>();
        known = shared;
        auto body = [self = shared_from_this(), weak = std::weak_ptr(shared),
                     record = std::move(record)]() -> Async<void> { return run(self, weak, record); };
        shared->task = Task(environment_.executors.main, std::move(body));
    }
    co_await shared->task.finished();
    if (!shared->entry) throw Cancelled();
    co_return shared;
}

Async<void> BodyStore::run(std::shared_ptr<BodyStore> self, std::weak_ptr<Load> weak, MessageRecord record) {
    const Loaded loaded = co_await self->bring(record);
    self->cache_->store(MessageCache::key(record), loaded.body.entry);
    if (const auto load = weak.lock()) {
        load->entry = loaded.body.entry;
        load->source = loaded.source;
    }
    co_await self->note(record, loaded);
}

Async<BodyStore::Loaded> BodyStore::bring(const MessageRecord& record) {
    Loaded loaded;
    // The prefetch may be at this very message, and may leave it undone.
    do {
        co_await downloads_->ended(record.id);
        if (co_await readFile(record, loaded)) co_return loaded;
    } while (downloads_->contains(record.id));
    const auto mark = downloads_->mark({record.id});
    co_await download(record, loaded);
    co_return loaded;
}

Async<bool> BodyStore::readFile(const MessageRecord& record, Loaded& loaded) {
    const Instant start = environment_.clock->instant();
    loaded.isInFiles = co_await callOn(environment_.executors.background, [&] {
        const auto source = environment_.files.loadBody(BodyKey::of(record));
        if (!source) return false;
        loaded.body = readBody(*source);
        index(environment_.bodyIndex, record, loaded.body);
        return true;
    });
    if (loaded.isInFiles) logDuration("body read from disk and parsed", *environment_.clock, start);
    co_return loaded.isInFiles;
}

Async<void> BodyStore::download(const MessageRecord& record, Loaded& loaded) {
    loaded.source = std::make_shared<const Bytes>(co_await fetch(record));
    co_await callOn(environment_.executors.background, [&] {
        const bool isSample = environment_.isShowingSamples;
        // The file before the index, so that a crash leaves no text without its message.
        loaded.isInFiles = !isSample && save(environment_.files, *loaded.source, BodyKey::of(record));
        loaded.body = readBody(*loaded.source);
        if (!isSample) index(environment_.bodyIndex, record, loaded.body);
    });
    if (loaded.isInFiles && onStored) onStored(loaded.source->size());
}

Async<Bytes> BodyStore::fetch(const MessageRecord& record) {
    if (environment_.isShowingSamples) co_return sample(record);
    const auto engine = engines_.engineOf(record.accountID);
    if (!engine) throw AccountGone();
    const Instant start = environment_.clock->instant();
    auto source = co_await engine->fetchRawMessage(record.mailboxPath, record.uidValidity,
                                                   static_cast<std::uint32_t>(record.uid));
    logDuration("body downloaded", *environment_.clock, start);
    co_return source;
}

/// Tells the record. One that went meanwhile took its files with it, but not the one that was written since.
Async<void> BodyStore::note(const MessageRecord& record, const Loaded& loaded) {
    BodyTable::Outcome outcome;
    outcome.hasBody = loaded.isInFiles;
    outcome.snippet = loaded.body.snippet;
    bool isThere = false;
    std::function<void(ModelContext&)> work = [&](ModelContext& context) {
        isThere = context.bodies.record(rowOf(record), outcome);
    };
    try {
        co_await environment_.writer.write(std::move(work));
        if (isThere) co_return;
    } catch (const sqlite::SQLiteError& error) {
        log("Mail").error("Couldn't save mail cache: {}", pub(error.sentence()));
        co_return;
    }
    const bool isAccountGone = !environment_.isShowingSamples && !environment_.account(record.accountID);
    co_await callOn(environment_.executors.background, [&] {
        if (loaded.isInFiles) environment_.files.deleteBody(BodyKey::of(record));
        if (isAccountGone) environment_.bodyIndex.removeAccount(record.accountID);
    });
}

}
