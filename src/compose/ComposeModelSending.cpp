#include "base/Localisation.h"
#include "base/Text.h"
#include "base/UserError.h"
#include "compose/AddressChips.h"
#include "compose/ComposeModel.h"
#include "compose/WrittenMessage.h"
#include "platform/DateText.h"
#include "platform/FileError.h"
#include "platform/Log.h"

#include <algorithm>
#include <array>
#include <utility>

namespace velmo {

namespace {

std::string joinedList(const std::vector<std::string>& texts) {
    std::string list;
    for (const auto& text : texts) {
        if (!list.empty()) list += ", ";
        list += text;
    }
    return list;
}

}

// --- Addresses ---------------------------------------------------------------------------------------------------

/// A list of recipients with its field.
struct ComposeModel::Field {
    Observed<std::vector<IMAPAddress>> ComposeModel::*chips;
    Observed<std::string> ComposeModel::*typed;

    static constexpr std::array<Field, 3> all();
};

constexpr std::array<ComposeModel::Field, 3> ComposeModel::Field::all() {
    return {Field{&ComposeModel::to, &ComposeModel::typedTo}, Field{&ComposeModel::cc, &ComposeModel::typedCc},
            Field{&ComposeModel::bcc, &ComposeModel::typedBcc}};
}

void ComposeModel::commitTypedAddresses() {
    for (const auto& field : Field::all()) {
        auto chips = *(this->*field.chips);
        auto typed = *(this->*field.typed);
        commitTyped(typed, chips);
        this->*field.chips = std::move(chips);
        this->*field.typed = std::move(typed);
    }
}

bool ComposeModel::hasRecipients() const {
    if (*isSending || !account()) return false;
    return std::ranges::any_of(Field::all(), [this](const auto& field) {
        return !(this->*field.chips)->empty() || !OutgoingMessage::parseAddressList(*(this->*field.typed)).empty();
    });
}

std::vector<std::string> ComposeModel::invalidAddresses() const {
    auto invalid = velmo::invalidAddresses({*to, *cc, *bcc});
    for (const auto& field : Field::all()) {
        for (const auto piece : OutgoingMessage::splitAddressList(*(this->*field.typed))) {
            const auto trimmed = text::trimmedUnicode(piece);
            if (!trimmed.empty() && !OutgoingMessage::parseAddress(trimmed)) invalid.emplace_back(trimmed);
        }
    }
    return invalid;
}

// --- Sending -----------------------------------------------------------------------------------------------------

Async<bool> ComposeModel::send(std::optional<Date> at) {
    // What would not be understood is asked about, rather than dropped by committing the rest.
    const auto invalid = invalidAddresses();
    if (!invalid.empty()) {
        errorMessage = tr("Check these addresses: {}", joinedList(invalid));
        co_return false;
    }
    commitTypedAddresses();
    const auto sender = account();
    if (!hasRecipients() || !sender || *isQueued) co_return false;
    isSending = true;
    std::exception_ptr failure;
    try {
        // A draft that is on its way is cleared after the send only when it is known.
        co_await whileSaving();
        OutboxItem queued = queuedContent(*sender, at);
        queuedItem_ = queued.id;
        const bool isScheduled = queued.isScheduled;
        co_await outbox_.enqueue(std::move(queued));
        isQueued = true;
        isDirty = false;
        saving_.cancel();
        Banner banner;
        banner.id = UUID::random();
        banner.text = isScheduled ? tr("Scheduled for {}", dateText(*at, DateStyle::abbreviated)) : tr("Message sent");
        banner.outboxID = queuedItem_;
        banner.lifetime = std::max(Outbox::undoWindow(settings_), std::chrono::seconds{4});
        mail_.status().banner = banner;
    } catch (...) {
        failure = std::current_exception();
    }
    isSending = false;
    if (!failure) {
        co_await releaseTaken();
        co_await removeFormerDraft(sender->id);
        co_return true;
    }
    queuedItem_.reset();
    if (isCancellation(failure)) std::rethrow_exception(failure);
    errorMessage = sentenceOf(failure);
    co_return false;
}

/// What is written, with the identifier that it has.
OutboxItem ComposeModel::content() const {
    OutboxItem item;
    item.to = *to;
    item.cc = *cc;
    item.bcc = *bcc;
    dropRepeats({&item.to, &item.cc, &item.bcc});
    item.subject = *subject;
    item.body = *body;
    item.attachments = *attachments;
    item.messageID = messageID.value_or("");
    item.inReplyTo = inReplyTo;
    item.references = references;
    item.answering = answering;
    item.hasSavedDraft = hasSavedDraft;
    return item;
}

OutboxItem ComposeModel::queuedContent(const MailAccount& sender, std::optional<Date> at) {
    const Date now = mail_.environment().clock->now();
    if (!messageID) messageID = OutgoingMessage(senderAddress(settings_, sender), now).messageID;
    OutboxItem item = content();
    item.id = UUID::random();
    item.accountID = sender.id;
    item.sendAt = at.value_or(now + Outbox::undoWindow(settings_));
    item.isScheduled = at.has_value();
    return item;
}

std::optional<OutgoingMessage> ComposeModel::buildOutgoing() const {
    const auto sender = account();
    if (!sender) return std::nullopt;
    return writtenMessage(content(), *sender, settings_, mail_.environment().clock->now());
}

// --- Drafts ------------------------------------------------------------------------------------------------------

void ComposeModel::changed() {
    if (isFilling_) return;
    ++revision_;
    isDirty = true;
    if (*isQueued || isClosed_) return;
    if (*isSavingDraft) return; // looks again when it has ended
    saving_ = Task(mail_.environment().executors.main, [this] { return saveAfterPause(); });
}

/// What was taken from the outbox is safe elsewhere now, or is not wanted any more.
Async<void> ComposeModel::releaseTaken() {
    const auto taken = std::exchange(taken_, nullptr);
    if (!taken) co_return;
    std::exception_ptr failure;
    try {
        co_await outbox_.release(taken->id);
    } catch (const FileError&) {
        failure = std::current_exception();
    }
    // It comes back at the next start, to wait for the person.
    if (failure) log("Mail").error("A message that was taken back: {}", pub(sentenceOf(failure)));
}

Async<void> ComposeModel::saveAfterPause() {
    do {
        co_await mail_.environment().clock->wait(savePause);
        std::exception_ptr failure;
        try {
            co_await saveDraft();
        } catch (...) {
            failure = std::current_exception();
        }
        if (failure && isCancellation(failure)) std::rethrow_exception(failure);
        if (!failure) continue;
        log("Mail").error("Couldn't save a draft: {}", pub(sentenceOf(failure)));
        co_await mail_.environment().clock->wait(retryPause);
    } while (*isDirty && !*isQueued && !isClosed_);
}

Async<void> ComposeModel::whileSaving() {
    while (*isSavingDraft) {
        saved_.lower();
        co_await saved_.wait();
    }
}

Async<void> ComposeModel::saveDraft() {
    co_await whileSaving();
    const auto sender = account();
    const auto message = buildOutgoing();
    if (!message || message->isEmpty() || *isQueued || *isSending) co_return;
    messageID = message->messageID;
    const auto revision = revision_;
    isSavingDraft = true;
    std::exception_ptr failure;
    try {
        Bytes bytes = co_await callOn(mail_.environment().executors.background, [&] { return message->buildDraft(); });
        // The server may have it even when its answer is lost.
        hasSavedDraft = true;
        co_await mail_.filing().saveDraft(*sender, message->messageID, std::move(bytes));
        co_await removeFormerDraft(sender->id);
        noteDraft(sender->id);
        lastSaved = mail_.environment().clock->now();
        if (revision == revision_) isDirty = false;
        co_await releaseTaken();
    } catch (...) {
        failure = std::current_exception();
    }
    if (failure && !isCancellation(failure)) co_await keepHere(*sender);
    isSavingDraft = false;
    saved_.raise();
    if (failure) std::rethrow_exception(failure);
}

/// The draft of this Message-ID lies with the account.
void ComposeModel::noteDraft(const UUID& accountID) {
    draft_.emplace();
    draft_->accountID = accountID;
    draft_->messageID = messageID;
}

/// Where the draft lay with another account, or without a Message-ID, the copy that has come in its place, or that is
/// being sent, does not end it.
Async<void> ComposeModel::removeFormerDraft(const UUID& accountID) {
    const auto former = std::exchange(draft_, std::nullopt);
    if (!former || (former->accountID == accountID && former->messageID == messageID)) co_return;
    const auto holder = mail_.environment().account(former->accountID);
    std::exception_ptr failure;
    try {
        if (holder) co_await mail_.filing().deleteDraft(*holder, *former);
    } catch (...) {
        failure = std::current_exception();
    }
    if (failure && isCancellation(failure)) std::rethrow_exception(failure);
    if (failure) log("Mail").error("An older copy of a draft stays: {}", pub(sentenceOf(failure)));
}

/// The server does not take it now; so the outbox keeps it, as though it had been there and been taken back.
Async<void> ComposeModel::keepHere(const MailAccount& sender) {
    OutboxItem kept = content();
    kept.id = taken_ ? taken_->id : UUID::random();
    kept.accountID = sender.id;
    kept.sendAt = OutboxItem::distantFuture;
    if (taken_ && *taken_ == kept) co_return;
    try {
        co_await outbox_.keep(kept);
        taken_ = std::make_shared<const OutboxItem>(std::move(kept));
    } catch (const FileError& error) {
        log("Mail").error("A draft could not be kept: {}", pub(error.sentence()));
    }
}

Async<void> ComposeModel::deleteDraft() {
    saving_.cancel();
    co_await whileSaving();
    co_await releaseTaken();
    const auto holder = draft_ ? mail_.environment().account(draft_->accountID) : account();
    if (!hasSavedDraft || !holder) co_return;
    if (draft_)
        co_await mail_.filing().deleteDraft(*holder, *draft_);
    else if (messageID)
        co_await mail_.filing().deleteDraft(*holder, *messageID);
    draft_.reset();
    hasSavedDraft = false;
}

Async<void> ComposeModel::close() {
    isClosed_ = true;
    saving_.cancel();
    co_await saving_.finished();
    const auto taken = std::exchange(taken_, nullptr);
    if (!taken || *isQueued) co_return;
    std::exception_ptr failure;
    try {
        co_await outbox_.putBack(*taken);
    } catch (const FileError&) {
        failure = std::current_exception();
    }
    // It comes back at the next start.
    if (failure) log("Mail").error("A message that was taken back: {}", pub(sentenceOf(failure)));
}

}
