#include "store/MailboxDirectory.h"

#include "platform/Log.h"
#include "platform/SQLite.h"

#include <algorithm>

namespace velmo {

namespace {

constexpr Duration cacheLife{2'000};

}

MailboxDirectory::MailboxDirectory(StoreEnvironment& environment) : environment_(environment) {
    onCommit_ = environment_.context.container()->onChange([this](const ModelChanges&) { cache_.clear(); });
}

MailboxDirectory::~MailboxDirectory() {
    onCommit_.disconnect();
}

const std::vector<MailboxRecord>& MailboxDirectory::mailboxes(const UUID& accountID) {
    const Instant now = environment_.clock->instant();
    Cached& cached = cache_[accountID];
    if (cached.fetched != Instant{} && cached.version == *version && now - cached.fetched <= cacheLife)
        return cached.mailboxes;
    cached.mailboxes.clear();
    try {
        cached.mailboxes = environment_.context.mailboxes.of(accountID);
    } catch (const sqlite::SQLiteError& error) {
        log("Mail").error("Couldn't read the mailboxes: {}", pub(error.what()));
    }
    std::ranges::stable_sort(cached.mailboxes, {},
                             [](const MailboxRecord& record) { return static_cast<int>(record.role()); });
    cached.version = *version;
    cached.fetched = now;
    return cached.mailboxes;
}

std::optional<MailboxRecord> MailboxDirectory::mailbox(MailboxRole role, const UUID& accountID) {
    const auto& all = mailboxes(accountID);
    const auto found = std::ranges::find(all, role, &MailboxRecord::role);
    return found == all.end() ? std::nullopt : std::optional(*found);
}

void MailboxDirectory::listingStored(const UUID& accountID, std::set<std::string> paths) {
    known_[accountID] = std::move(paths);
    cache_.erase(accountID);
    version = *version + 1;
}

void MailboxDirectory::remove(const UUID& accountID) {
    cache_.erase(accountID);
    known_.erase(accountID);
}

}
