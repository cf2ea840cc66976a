#include "store/AccountPass.h"

#include "base/UserError.h"

#include <algorithm>
#include <exception>
#include <optional>
#include <utility>

namespace velmo {

int syncPriority(MailboxRole role) {
    return role == MailboxRole::inbox ? 0 : static_cast<int>(role) + 2;
}

namespace {

/// What a pass syncs, in its order.
std::vector<MailboxEntry> inOrder(std::vector<MailboxEntry> entries, const PassHooks& hooks) {
    std::erase_if(entries, [](const auto& entry) { return !entry.isSelectable || entry.role == MailboxRole::all; });
    std::ranges::stable_sort(entries, {}, [&](const auto& entry) {
        return hooks.priority ? hooks.priority(entry) : syncPriority(entry.role);
    });
    return entries;
}

/// The state of one pass. A mailbox is written while the next one is fetched; never more than one waits.
class Pass {
  public:
    Pass(SyncEngine& engine, SyncWriter& writer, UUID accountID, LabelNewMail labelNewMail, PassHooks hooks)
        : engine_(engine),
          writer_(writer),
          accountID_(accountID),
          labelNewMail_(labelNewMail),
          hooks_(std::move(hooks)) {}

    Async<PassResult> run() {
        auto reading = writer_.localChanges().beginReading();
        auto listed = co_await engine_.listMailboxes();
        co_await writer_.upsertMailboxes(accountID_, std::move(listed), std::move(reading));
        const auto all = co_await writer_.mailboxEntries(accountID_);
        if (hooks_.onListed) hooks_.onListed(all);
        const auto entries = inOrder(all, hooks_);
        std::exception_ptr failure;
        try {
            for (std::size_t i = 0; i < entries.size(); ++i) {
                tellProgress(entries, i);
                co_await step(entries[i].path);
            }
        } catch (...) {
            failure = std::current_exception();
        }
        // What was fetched before a failure is kept.
        if (!isCancellation(failure)) co_await write();
        if (failure) std::rethrow_exception(failure);
        co_return result_;
    }

  private:
    struct Fetched {
        std::string path;
        MailboxDelta delta;
        std::shared_ptr<void> claim;
        SyncWriter::Reading reading;
    };

    void tellProgress(const std::vector<MailboxEntry>& entries, std::size_t index) {
        if (!hooks_.onProgress) return;
        PassProgress progress;
        progress.mailbox = entries[index].path;
        progress.position = index + 1;
        progress.count = entries.size();
        hooks_.onProgress(progress);
    }

    /// Fetches one mailbox, and writes the one before.
    Async<void> step(const std::string& path) {
        Fetched next;
        next.path = path;
        if (hooks_.claim) {
            next.claim = hooks_.claim(path);
            if (!next.claim) co_return;
        }
        next.reading = writer_.localChanges().beginReading();
        const SyncState held = co_await writer_.syncState(accountID_, path);
        co_await both([this] { return write(); },
                      [&]() -> Async<void> { next.delta = co_await engine_.syncMailbox(path, held); });
        ++result_.mailboxes;
        result_.newMessages += next.delta.newMessages.size();
        result_.vanished += next.delta.vanished.size();
        waiting_ = std::move(next);
    }

    Async<void> write() {
        if (!waiting_) co_return;
        Fetched fetched = std::move(*waiting_);
        waiting_.reset();
        auto applied = co_await writer_.apply(std::move(fetched.delta), accountID_, fetched.path, labelNewMail_,
                                              std::move(fetched.reading));
        if (hooks_.onStored) hooks_.onStored(std::move(applied));
    }

    SyncEngine& engine_;
    SyncWriter& writer_;
    UUID accountID_;
    LabelNewMail labelNewMail_;
    PassHooks hooks_;
    std::optional<Fetched> waiting_; ///< fetched and not yet written
    PassResult result_;
};

}

Async<PassResult> passOver(SyncEngine& engine, SyncWriter& writer, UUID accountID, LabelNewMail labelNewMail,
                           PassHooks hooks) {
    Pass pass(engine, writer, accountID, labelNewMail, std::move(hooks));
    co_return co_await pass.run();
}

}
