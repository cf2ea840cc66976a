#include "store/AccountPass.h"

#include <algorithm>

namespace velmo {

namespace {

/// What a pass syncs, in its order.
std::vector<MailboxEntry> inOrder(std::vector<MailboxEntry> entries) {
    std::erase_if(entries, [](const auto& entry) { return !entry.isSelectable || entry.role == MailboxRole::all; });
    std::ranges::stable_sort(entries, {}, [](const auto& entry) { return syncPriority(entry.role); });
    return entries;
}

}

int syncPriority(MailboxRole role) {
    return role == MailboxRole::inbox ? 0 : static_cast<int>(role) + 2;
}

Async<PassResult> passOver(SyncEngine& engine, SyncWriter& writer, UUID accountID, LabelNewMail labelNewMail,
                           std::function<void(const PassProgress&)> onProgress) {
    auto listed = co_await engine.listMailboxes();
    co_await writer.upsertMailboxes(accountID, std::move(listed));
    const auto entries = inOrder(co_await writer.mailboxEntries(accountID));
    PassResult result;
    for (const auto& entry : entries) {
        PassProgress progress;
        progress.mailbox = entry.path;
        progress.position = ++result.mailboxes;
        progress.count = entries.size();
        if (onProgress) onProgress(progress);
        const SyncState held = co_await writer.syncState(accountID, entry.path);
        auto delta = co_await engine.syncMailbox(entry.path, held);
        result.newMessages += delta.newMessages.size();
        result.vanished += delta.vanished.size();
        co_await writer.apply(std::move(delta), accountID, entry.path, labelNewMail);
    }
    co_return result;
}

}
