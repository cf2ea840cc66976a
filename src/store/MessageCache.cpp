#include "store/MessageCache.h"

#include <iterator>
#include <utility>

namespace velmo {

std::string MessageCache::key(const MessageRecord& record) {
    return record.accountID.text() + '|' + record.mailboxPath + '|' + std::to_string(record.uidValidity) + '|' +
           std::to_string(record.uid);
}

std::size_t MessageCache::cost(const Entry& entry) {
    const auto length = [](const std::optional<std::string>& text) { return text ? text->size() : 0; };
    return length(entry.content.plainText) + length(entry.content.html);
}

MessageCache::EntryPointer MessageCache::find(std::string_view key) {
    const std::lock_guard guard(mutex_);
    const auto found = byKey_.find(key);
    if (found == byKey_.end()) return nullptr;
    boxes_.splice(boxes_.begin(), boxes_, found->second);
    return found->second->entry;
}

void MessageCache::store(std::string key, EntryPointer entry) {
    const std::size_t entryCost = cost(*entry);
    const std::lock_guard guard(mutex_);
    if (const auto found = byKey_.find(key); found != byKey_.end()) drop(found->second);
    if (entryCost > limits_.cost) return;
    boxes_.push_front({std::move(key), std::move(entry), entryCost});
    byKey_.emplace(boxes_.front().key, boxes_.begin());
    totalCost_ += entryCost;
    while (boxes_.size() > limits_.entries || totalCost_ > limits_.cost) drop(std::prev(boxes_.end()));
}

void MessageCache::remove(std::string_view key) {
    const std::lock_guard guard(mutex_);
    if (const auto found = byKey_.find(key); found != byKey_.end()) drop(found->second);
}

void MessageCache::drop(Boxes::iterator box) {
    totalCost_ -= box->cost;
    byKey_.erase(box->key);
    boxes_.erase(box);
}

}
