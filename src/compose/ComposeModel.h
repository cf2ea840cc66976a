#pragma once

#include "base/Async.h"
#include "base/Flag.h"
#include "base/Observed.h"
#include "base/Task.h"
#include "compose/ComposeRequest.h"
#include "compose/Outbox.h"
#include "compose/ReplyContext.h"
#include "formats/OutgoingMessage.h"
#include "store/MailStore.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace velmo {

/// A message that is being written: the state behind a window for it.
///
/// Lives on the main executor. What it is given outlives it; `close` is to be awaited before it goes. Changes of what a
/// person writes set `isDirty`; after a pause in them the draft is saved to the server.
class ComposeModel {
  public:
    ComposeModel(MailStore& mail, Outbox& outbox, Settings& settings);
    ~ComposeModel();
    ComposeModel(const ComposeModel&) = delete;
    ComposeModel& operator=(const ComposeModel&) = delete;

    Observed<std::optional<UUID>> fromAccountID; ///< changed by `setSender`
    Observed<std::vector<IMAPAddress>> to, cc, bcc;
    Observed<std::string> typedTo, typedCc, typedBcc; ///< still being typed
    Observed<bool> showsCc, showsBcc;
    Observed<std::string> subject, body;
    Observed<std::vector<OutgoingAttachment>> attachments;

    Observed<bool> isLoading, isSending, isQueued, isSavingDraft, isDirty;
    Observed<std::optional<Date>> lastSaved;
    /// Why the last attempt to load or to send failed, as a sentence.
    Observed<std::optional<std::string>> errorMessage;

    std::optional<std::string> inReplyTo;
    std::vector<std::string> references;
    std::optional<std::int64_t> answering; ///< the `id` of the message that this answers
    std::optional<std::string> messageID;  ///< the same for the draft and the message that is sent
    bool hasSavedDraft = false;
    std::optional<std::string> signature; ///< the plain one that stands in `body`
    std::optional<std::string> quote;
    std::optional<ReplyContext> replyContext;

    /// Fills the model. What fails becomes `errorMessage`; throws only when it is cancelled.
    Async<void> load(ComposeRequest request);

    /// Sends from another account, with its signature in the place of the other.
    void setSender(const UUID& accountID);

    /// Something can be sent: there is a whole address, or one is being typed, and the account is known.
    bool hasRecipients() const;
    void commitTypedAddresses();
    /// The addresses that are not whole, those still being typed among them.
    std::vector<std::string> invalidAddresses() const;

    /// Puts the message into the outbox: for the time `at`, or for the end of the undo window. False when it is not
    /// sent; `errorMessage` tells why. `queuedItem` is its number there.
    Async<bool> send(std::optional<Date> at = {});
    const std::optional<UUID>& queuedItem() const { return queuedItem_; }

    /// Saves the draft now, unless it is blank. Throws what the server refuses; the message stays dirty then, and this
    /// machine keeps it.
    Async<void> saveDraft();

    /// Deletes the draft on the server, where there is one. What was taken back from the outbox for this is not wanted
    /// any more either.
    Async<void> deleteDraft();

    /// The message as it stands; absent without an account.
    std::optional<OutgoingMessage> buildOutgoing() const;

    /// Ends saving. Nothing is saved by this; a message that was taken back from the outbox and neither saved nor sent
    /// since, or whose draft the server did not take, is put into the outbox to wait for the person.
    Async<void> close();

    /// The pause in writing after which a draft is saved.
    static constexpr Duration savePause{5'000};
    /// The pause after one that could not be saved, unless more is written.
    static constexpr Duration retryPause{60'000};

  private:
    struct Field;

    std::optional<MailAccount> account() const;
    void fill(const ComposeRequest::New& request);
    void fill(const ComposeRequest::Mailto& request);
    void fill(const ComposeRequest::Outbox& request);
    Async<void> fill(const ComposeRequest::Reply& request);
    Async<void> fill(const ComposeRequest::Forward& request);
    Async<void> fill(const ComposeRequest::FollowUp& request);
    Async<void> fill(const ComposeRequest::EditDraft& request);
    Async<void> fillFrom(ComposeRequest request);
    MessageRecord record(std::int64_t id) const;
    std::optional<std::int64_t> messageWith(const std::string& identifier, const UUID& accountID) const;
    void answer(const MessageRecord& original, const ParsedMessage& content);
    void setContext(const MessageRecord& original, const ParsedMessage& content);
    void layOut(std::string_view written);
    void useSender(std::optional<UUID> accountID);
    std::optional<std::string> signatureOf(const std::optional<UUID>& accountID) const;
    void changed();
    Async<void> saveAfterPause();
    void noteDraft(const UUID& accountID);
    Async<void> removeFormerDraft(const UUID& accountID);
    Async<void> keepHere(const MailAccount& sender);
    Async<void> releaseTaken();
    Async<void> whileSaving();
    OutboxItem content() const;
    OutboxItem queuedContent(const MailAccount& sender, std::optional<Date> at);

    MailStore& mail_;
    Outbox& outbox_;
    Settings& settings_;
    std::vector<std::unique_ptr<ScopedConnection>> connections_;
    std::optional<UUID> queuedItem_;
    OutboxItemPointer taken_;            ///< what the outbox keeps of this until it is saved or sent
    std::optional<MessageRecord> draft_; ///< the copy on a server; of one that was saved here, account and Message-ID
    Flag saved_;
    Task saving_;
    std::uint64_t revision_ = 0;
    bool isFilling_ = false;
    bool isClosed_ = false;
};

}
