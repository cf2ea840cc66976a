#include "store/AccountPass.h"

#include "base/UserError.h"
#include "protocols/IMAPError.h"

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
    std::erase_if(entries, [](const auto& entry) { return !entry.isSelectable; });
    std::ranges::stable_sort(entries, {}, [&](const auto& entry) {
        return hooks.priority ? hooks.priority(entry) : syncPriority(entry.role);
    });
    return entries;
}

/// The state of one pass. While a mailbox is fetched, the one before it is written and the next one prepared, so that
/// the server never waits for the store.
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
            if (!entries.empty()) co_await prepare(entries.front().path);
            for (std::size_t i = 0; i < entries.size(); ++i) {
                tellProgress(entries, i);
                co_await step(i + 1 < entries.size() ? &entries[i + 1].path : nullptr);
            }
        } catch (...) {
            failure = std::current_exception();
        }
        // What was fetched before a failure is kept.
        if (!isCancellation(failure)) co_await write();
        if (!failure && result_.mailboxes == 0) failure = firstRefusal_;
        if (failure) std::rethrow_exception(failure);
        co_return result_;
    }

  private:
    struct Mailbox {
        std::string path;
        std::shared_ptr<void> claim;
        SyncWriter::Reading reading;
        SyncState held;
        MailboxDelta delta;
    };

    void tellProgress(const std::vector<MailboxEntry>& entries, std::size_t index) {
        if (!hooks_.onProgress) return;
        PassProgress progress;
        progress.mailbox = entries[index].path;
        progress.position = index + 1;
        progress.count = entries.size();
        hooks_.onProgress(progress);
    }

    /// Takes hold of a mailbox, unless somebody else syncs it, and reads what is held of it.
    Async<void> prepare(const std::string& path) {
        Mailbox mailbox;
        mailbox.path = path;
        if (hooks_.claim) {
            mailbox.claim = hooks_.claim(path);
            if (!mailbox.claim) co_return;
        }
        mailbox.reading = writer_.localChanges().beginReading();
        mailbox.held = co_await writer_.syncState(accountID_, path);
        if (!mailbox.held.isWanted()) co_return;
        prepared_ = std::move(mailbox);
    }

    /// Fetches the prepared mailbox, writes the one before, and prepares the next.
    Async<void> step(const std::string* next) {
        std::optional<Mailbox> mailbox = std::exchange(prepared_, std::nullopt);
        bool isRefused = false;
        const auto fetch = [&]() -> Async<void> {
            if (!mailbox) co_return;
            try {
                mailbox->delta = co_await engine_.syncMailbox(mailbox->path, std::move(mailbox->held));
            } catch (const IMAPError& error) {
                if (error.kind() != IMAPError::Kind::commandFailed) throw;
                isRefused = true;
                firstRefusal_ = firstRefusal_ ? firstRefusal_ : std::current_exception();
                result_.refusals.push_back({mailbox->path, error.sentence()});
            }
        };
        const auto store = [&]() -> Async<void> {
            co_await write();
            if (next != nullptr) co_await prepare(*next);
        };
        co_await both(store, fetch);
        if (!mailbox || isRefused) co_return;
        if (mailbox->delta.refusal) result_.refusals.push_back({mailbox->path, *mailbox->delta.refusal});
        ++result_.mailboxes;
        result_.newMessages += mailbox->delta.newMessages.size();
        result_.vanished += mailbox->delta.vanished.size();
        waiting_ = std::move(mailbox);
    }

    Async<void> write() {
        if (!waiting_) co_return;
        Mailbox mailbox = std::move(*waiting_);
        waiting_.reset();
        auto applied = co_await writer_.apply(std::move(mailbox.delta), accountID_, mailbox.path, labelNewMail_,
                                              std::move(mailbox.reading));
        if (hooks_.onStored) hooks_.onStored(std::move(applied));
    }

    SyncEngine& engine_;
    SyncWriter& writer_;
    UUID accountID_;
    LabelNewMail labelNewMail_;
    PassHooks hooks_;
    std::optional<Mailbox> prepared_; ///< to be fetched next
    std::optional<Mailbox> waiting_;  ///< fetched and not yet written
    PassResult result_;
    std::exception_ptr firstRefusal_;
};

}

Async<PassResult> passOver(SyncEngine& engine, SyncWriter& writer, UUID accountID, LabelNewMail labelNewMail,
                           PassHooks hooks) {
    Pass pass(engine, writer, accountID, labelNewMail, std::move(hooks));
    co_return co_await pass.run();
}

}
