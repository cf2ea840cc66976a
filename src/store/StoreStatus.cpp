#include "store/StoreStatus.h"

#include <utility>

namespace velmo {

SyncStatus SyncStatus::syncing() {
    SyncStatus status;
    status.kind = Kind::syncing;
    return status;
}

SyncStatus SyncStatus::failed(std::string text) {
    SyncStatus status;
    status.kind = Kind::failed;
    status.text = std::move(text);
    return status;
}

SyncStatus StoreStatus::of(const UUID& accountID) const {
    const auto found = accounts->find(accountID);
    return found == accounts->end() ? SyncStatus::idle() : found->second;
}

void StoreStatus::set(const UUID& accountID, SyncStatus status) {
    accounts.update([&](auto& all) { all[accountID] = std::move(status); });
}

void StoreStatus::setChecked(const UUID& accountID, Date date) {
    lastChecked.update([&](auto& all) { all[accountID] = date; });
}

void StoreStatus::showUndo(std::string text) {
    Banner line;
    line.id = UUID::random();
    line.text = std::move(text);
    line.canUndo = true;
    banner = line;
}

void StoreStatus::showError(std::string text) {
    Banner line;
    line.id = UUID::random();
    line.text = std::move(text);
    line.isError = true;
    banner = line;
}

void StoreStatus::clearUndo() {
    if (banner->has_value() && (*banner)->canUndo) banner = std::optional<Banner>();
}

void StoreStatus::hide(const std::set<std::int64_t>& messages) {
    hidden.update([&](auto& all) { all.insert(messages.begin(), messages.end()); });
}

void StoreStatus::show(const std::set<std::int64_t>& messages) {
    hidden.update([&](auto& all) { std::erase_if(all, [&](auto id) { return messages.contains(id); }); });
}

namespace {

std::optional<bool>& placeOf(ShownFlags& shown, PersonalFlag flag) {
    return flag == PersonalFlag::seen ? shown.isSeen : shown.isFlagged;
}

}

void StoreStatus::showFlag(const std::vector<std::int64_t>& messages, PersonalFlag flag, bool value) {
    shownFlags.update([&](auto& all) {
        for (const auto id : messages) placeOf(all[id], flag) = value;
    });
}

void StoreStatus::endShowing(const std::vector<std::int64_t>& messages, PersonalFlag flag, bool value) {
    if (shownFlags->empty()) return;
    shownFlags.update([&](auto& all) {
        for (const auto id : messages) {
            const auto found = all.find(id);
            if (found == all.end()) continue;
            auto& shown = placeOf(found->second, flag);
            if (shown == value) shown.reset();
            if (found->second == ShownFlags()) all.erase(found);
        }
    });
}

void StoreStatus::applyShownFlags(MessageRecord& record) const {
    const auto found = shownFlags->find(record.id);
    if (found == shownFlags->end()) return;
    record.isSeen = found->second.isSeen.value_or(record.isSeen);
    record.isFlagged = found->second.isFlagged.value_or(record.isFlagged);
}

void StoreStatus::remove(const UUID& accountID) {
    accounts.update([&](auto& all) { all.erase(accountID); });
    lastChecked.update([&](auto& all) { all.erase(accountID); });
}

}
