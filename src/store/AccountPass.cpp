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

namespace {

/// The state of one pass. A mailbox is written while the next one is fetched; never more than one waits.
class Pass {
  public:
    Pass(SyncEngine& engine, SyncWriter& writer, UUID accountID, LabelNewMail labelNewMail)
        : engine_(engine), writer_(writer), accountID_(accountID), labelNewMail_(labelNewMail) {}

    /// Fetches one mailbox, and writes the one before.
    Async<void> step(const MailboxEntry& entry) {
        const SyncState held = co_await writer_.syncState(accountID_, entry.path);
        MailboxDelta fetched;
        co_await both([this] { return write(); },
                      [&]() -> Async<void> { fetched = co_await engine_.syncMailbox(entry.path, held); });
        ++result_.mailboxes;
        result_.newMessages += fetched.newMessages.size();
        result_.vanished += fetched.vanished.size();
        path_ = entry.path;
        delta_ = std::move(fetched);
    }

    Async<void> write() {
        if (!delta_) co_return;
        MailboxDelta delta = std::move(*delta_);
        delta_.reset();
        co_await writer_.apply(std::move(delta), accountID_, path_, labelNewMail_);
    }

    const PassResult& result() const { return result_; }

  private:
    SyncEngine& engine_;
    SyncWriter& writer_;
    UUID accountID_;
    LabelNewMail labelNewMail_;
    std::optional<MailboxDelta> delta_; ///< fetched and not yet written
    std::string path_;
    PassResult result_;
};

}

Async<PassResult> passOver(SyncEngine& engine, SyncWriter& writer, UUID accountID, LabelNewMail labelNewMail,
                           std::function<void(const PassProgress&)> onProgress) {
    auto listed = co_await engine.listMailboxes();
    co_await writer.upsertMailboxes(accountID, std::move(listed));
    const auto entries = inOrder(co_await writer.mailboxEntries(accountID));
    Pass pass(engine, writer, accountID, labelNewMail);
    for (const auto& entry : entries) {
        PassProgress progress;
        progress.mailbox = entry.path;
        progress.position = pass.result().mailboxes + 1;
        progress.count = entries.size();
        if (onProgress) onProgress(progress);
        co_await pass.step(entry);
    }
    co_await pass.write();
    co_return pass.result();
}

}
