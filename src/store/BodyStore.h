#pragma once

#include "base/Async.h"
#include "base/Bytes.h"
#include "base/Task.h"
#include "records/MessageRecord.h"
#include "store/AccountEngines.h"
#include "store/BodyDownloads.h"
#include "store/MessageCache.h"
#include "store/StoreEnvironment.h"

#include <map>
#include <memory>
#include <string>

namespace velmo {

/// The bodies of messages: from memory, from the body files, or else from the server, whose answer is kept and indexed.
///
/// Lives on the main executor, where every operation starts and gives its result; files are read and messages taken
/// apart on the background executor. Those who ask for the same message at the same time share one load. Made by
/// std::make_shared.
class BodyStore : public std::enable_shared_from_this<BodyStore> {
  public:
    /// `environment` and `engines` outlive the loads that run.
    BodyStore(StoreEnvironment& environment, AccountEngines& engines, std::shared_ptr<BodyDownloads> downloads);

    /// The message, taken apart; its record gets the snippet of the whole text. Throws AccountGone, and what
    /// SyncEngine::fetchRawMessage throws; then nothing is kept.
    Async<MessageCache::EntryPointer> content(MessageRecord record);

    /// What `content` has in memory; null otherwise. Never waits.
    MessageCache::EntryPointer cached(const MessageRecord& record) const;

    /// The complete source of the message (RFC 5322). Throws as `content` does.
    Async<Bytes> source(MessageRecord record);

    /// Told when a message has become a file, with its size in bytes. May be empty.
    std::function<void(std::size_t)> onStored;

    const std::shared_ptr<BodyDownloads>& downloads() const { return downloads_; }
    const std::shared_ptr<MessageCache>& cache() const { return cache_; }

  private:
    /// One load, which is cancelled when nobody waits for it any longer.
    struct Load;
    struct Loaded;

    Async<std::shared_ptr<Load>> load(MessageRecord record);
    static Async<void> run(std::shared_ptr<BodyStore> self, std::weak_ptr<Load> weak, MessageRecord record);
    Async<Loaded> bring(const MessageRecord& record);
    Async<bool> readFile(const MessageRecord& record, Loaded& loaded);
    Async<void> download(const MessageRecord& record, Loaded& loaded);
    Async<Bytes> fetch(const MessageRecord& record);
    Async<void> note(const MessageRecord& record, const Loaded& loaded);
    Bytes sample(const MessageRecord& record) const;

    StoreEnvironment& environment_;
    AccountEngines& engines_;
    std::shared_ptr<BodyDownloads> downloads_;
    std::shared_ptr<MessageCache> cache_ = std::make_shared<MessageCache>();
    std::map<std::string, std::weak_ptr<Load>> loads_;
};

}
