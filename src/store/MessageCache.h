#pragma once

#include "formats/ParsedMessage.h"
#include "records/MessageRecord.h"

#include <cstddef>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>

namespace velmo {

/// Messages that were read lately, taken apart and ready to be shown. Bounded by the number of entries and by their
/// cost; the one that was used least lately goes first. Every operation may be called from any thread.
class MessageCache {
  public:
    /// What is kept of a message. Entries never change, so a reader keeps one as long as it likes.
    struct Entry {
        ParsedMessage content;
    };
    using EntryPointer = std::shared_ptr<const Entry>;

    struct Limits {
        Limits() {}
        Limits(std::size_t entries_, std::size_t cost_) : entries(entries_), cost(cost_) {}
        std::size_t entries = 400;
        std::size_t cost = 400'000'000;
    };

    explicit MessageCache(Limits limits = {}) : limits_(limits) {}

    /// "{accountID}|{mailboxPath}|{uidValidity}|{uid}"
    static std::string key(const MessageRecord& record);

    /// Bytes of the two texts. Attachments don't count.
    static std::size_t cost(const Entry& entry);

    /// The entry, which counts as used now; null when there is none.
    EntryPointer find(std::string_view key);

    /// Puts the entry in, in place of one under the same key. One that costs more than the limit is not kept.
    void store(std::string key, EntryPointer entry);

    void remove(std::string_view key);

  private:
    struct Box {
        std::string key;
        EntryPointer entry;
        std::size_t cost = 0;
    };
    using Boxes = std::list<Box>;

    void drop(Boxes::iterator box);

    const Limits limits_;
    std::mutex mutex_; // guards what follows
    Boxes boxes_;      // the one that was used last is in front
    std::unordered_map<std::string_view, Boxes::iterator> byKey_;
    std::size_t totalCost_ = 0;
};

}
