#include "store/MailboxSyncs.h"

#include <optional>
#include <utility>

namespace velmo {

void MailboxSyncs::add(const MailboxKey& mailbox) {
    if (!sync_ || !waiting_.insert(mailbox).second) return;
    lanes_.add(mailbox.accountID, [weak = weak_from_this(), mailbox] { return run(weak, mailbox); });
}

Async<void> MailboxSyncs::run(std::weak_ptr<MailboxSyncs> weak, MailboxKey mailbox) {
    std::optional<MailAccount> account;
    Sync sync;
    if (const auto self = weak.lock()) {
        self->waiting_.erase(mailbox);
        account = self->environment_.account(mailbox.accountID);
        sync = self->sync_;
    }
    if (!account) co_return;
    auto running = sync(*account, mailbox.path);
    co_await std::move(running);
}

}
