#include "compose/ComposeModel.h"

#include "base/Localisation.h"
#include "base/Text.h"
#include "base/UserError.h"
#include "compose/AddressChips.h"
#include "compose/BodyLayout.h"
#include "compose/MailtoURL.h"
#include "compose/Quotes.h"
#include "compose/ReplyRecipients.h"
#include "compose/Signatures.h"
#include "compose/WrittenMessage.h"
#include "formats/Addresses.h"
#include "formats/HTMLText.h"
#include "formats/HeaderWords.h"
#include "formats/MessageIDs.h"
#include "platform/CaseFolding.h"
#include "platform/DateText.h"
#include "platform/Log.h"

#include <algorithm>
#include <array>
#include <utility>

namespace velmo {

namespace {

class ComposeError final : public UserError {
  public:
    using UserError::UserError;
};

std::string headerText(const ParsedMessage& message, std::string_view name) {
    return decodeHeaderWords(message.headers.value(name).value_or(""));
}

std::vector<IMAPAddress> headerAddresses(const ParsedMessage& message, std::string_view name) {
    // Quoted names are read in front of the words that are encoded in them, which may hold commas.
    std::vector<IMAPAddress> addresses;
    for (const auto& one : parseAddressList(message.headers.value(name).value_or("")))
        addresses.push_back({one.name, one.email});
    return addresses;
}

std::string joinedList(const std::vector<std::string>& texts) {
    std::string list;
    for (const auto& text : texts) {
        if (!list.empty()) list += ", ";
        list += text;
    }
    return list;
}

}

ComposeModel::ComposeModel(MailStore& mail, Outbox& outbox, Settings& settings)
    : mail_(mail), outbox_(outbox), settings_(settings), saved_(mail.environment().executors.main) {
    const auto follow = [this](auto& observed) {
        connections_.push_back(std::make_unique<ScopedConnection>(observed.onChange([this] { changed(); })));
    };
    for (auto* list : {&to, &cc, &bcc}) follow(*list);
    for (auto* text : {&typedTo, &typedCc, &typedBcc, &subject, &body}) follow(*text);
    follow(attachments);
    follow(fromAccountID);
}

ComposeModel::~ComposeModel() = default;

std::optional<MailAccount> ComposeModel::account() const {
    return *fromAccountID ? mail_.environment().account(**fromAccountID) : std::nullopt;
}

// --- Filling it --------------------------------------------------------------------------------------------------

Async<void> ComposeModel::load(ComposeRequest request) {
    isLoading = true;
    isFilling_ = true;
    std::exception_ptr failure;
    try {
        co_await fillFrom(std::move(request));
    } catch (...) {
        failure = std::current_exception();
    }
    isFilling_ = false;
    isLoading = false;
    isDirty = false;
    if (!failure) co_return;
    if (isCancellation(failure)) std::rethrow_exception(failure);
    errorMessage = sentenceOf(failure);
}

Async<void> ComposeModel::fillFrom(ComposeRequest request) {
    if (const auto* blank = request.as<ComposeRequest::New>()) {
        fill(*blank);
    } else if (const auto* link = request.as<ComposeRequest::Mailto>()) {
        fill(*link);
    } else if (const auto* taken = request.as<ComposeRequest::Outbox>()) {
        fill(*taken);
    } else if (const auto* reply = request.as<ComposeRequest::Reply>()) {
        co_await fill(*reply);
    } else if (const auto* forward = request.as<ComposeRequest::Forward>()) {
        co_await fill(*forward);
    } else if (const auto* followUp = request.as<ComposeRequest::FollowUp>()) {
        co_await fill(*followUp);
    } else if (const auto* draft = request.as<ComposeRequest::EditDraft>()) {
        co_await fill(*draft);
    }
}

void ComposeModel::fill(const ComposeRequest::New& request) {
    useSender(request.from);
    layOut({});
}

void ComposeModel::fill(const ComposeRequest::Mailto& request) {
    const auto link = MailtoURL::parse(request.url);
    if (!link) throw ComposeError(tr("This is no link to write mail with."));
    useSender(request.from);
    to = link->to;
    cc = link->cc;
    bcc = link->bcc;
    showsCc = !link->cc.empty();
    showsBcc = !link->bcc.empty();
    subject = link->subject;
    layOut(link->body);
}

void ComposeModel::fill(const ComposeRequest::Outbox& request) {
    const auto taken = outbox_.claim(request.item);
    if (!taken) throw ComposeError(tr("This message is no longer in the outbox."));
    fromAccountID = taken->accountID;
    signature = signatureOf(taken->accountID);
    to = taken->to;
    cc = taken->cc;
    bcc = taken->bcc;
    showsCc = !taken->cc.empty();
    showsBcc = !taken->bcc.empty();
    subject = taken->subject;
    body = taken->body;
    attachments = taken->attachments;
    messageID = taken->messageID;
    inReplyTo = taken->inReplyTo;
    references = taken->references;
    answering = taken->answering;
    hasSavedDraft = taken->hasSavedDraft;
}

Async<void> ComposeModel::fill(const ComposeRequest::Reply& request) {
    const MessageRecord original = record(request.message);
    const auto entry = co_await mail_.bodies().content(original);
    useSender(original.accountID);
    const auto sender = account();
    auto recipients = replyRecipients(original, request.all ? ReplyScope::all : ReplyScope::sender,
                                      sender ? std::string_view(sender->email) : std::string_view());
    to = std::move(recipients.to);
    showsCc = !recipients.cc.empty();
    cc = std::move(recipients.cc);
    answer(original, entry->content);
    layOut(request.text.value_or(""));
}

Async<void> ComposeModel::fill(const ComposeRequest::FollowUp& request) {
    const MessageRecord original = record(request.message);
    const auto entry = co_await mail_.bodies().content(original);
    useSender(original.accountID);
    auto recipients = followUpRecipients(original);
    to = std::move(recipients.to);
    showsCc = !recipients.cc.empty();
    cc = std::move(recipients.cc);
    answer(original, entry->content);
    replyContext->isFollowUp = true;
    layOut({});
}

/// What a reply and a follow-up have in common.
void ComposeModel::answer(const MessageRecord& original, const ParsedMessage& content) {
    subject = prefixed("Re:", original.subject);
    auto thread = replyThread(original);
    inReplyTo = std::move(thread.inReplyTo);
    references = std::move(thread.references);
    answering = original.id;
    quote = replyQuote(original, content);
    setContext(original, content);
}

Async<void> ComposeModel::fill(const ComposeRequest::Forward& request) {
    const MessageRecord original = record(request.message);
    const auto entry = co_await mail_.bodies().content(original);
    useSender(original.accountID);
    subject = prefixed("Fwd:", original.subject);
    quote = forwardQuote(original, entry->content);
    std::vector<OutgoingAttachment> files;
    for (const auto& one : entry->content.attachments) {
        if (!one.isInline) files.push_back({UUID::random(), one.filename, one.mimeType, one.data});
    }
    attachments = std::move(files);
    setContext(original, entry->content);
    replyContext->isForward = true;
    layOut({});
}

Async<void> ComposeModel::fill(const ComposeRequest::EditDraft& request) {
    const MessageRecord draft = record(request.message);
    const auto entry = co_await mail_.bodies().content(draft);
    const ParsedMessage& content = entry->content;
    useSender(draft.accountID);
    to = headerAddresses(content, "To");
    cc = headerAddresses(content, "Cc");
    bcc = headerAddresses(content, "Bcc");
    showsCc = !cc->empty();
    showsBcc = !bcc->empty();
    subject = headerText(content, "Subject");
    std::string text = content.plainText.value_or("");
    if (text.empty()) text = htmlToPlainText(content.html.value_or(""));
    text = text::replacedAll(text, "\r\n", "\n");
    const std::string block = signatureBlock(signature.value_or(""));
    body = text.find(block) == std::string::npos ? composedBody(text, signature.value_or(""), "") : text;
    const auto answered = parseMessageIDs(content.headers.value("In-Reply-To").value_or(""));
    if (!answered.empty()) inReplyTo = answered.front();
    references = parseMessageIDs(content.headers.value("References").value_or(""));
    const auto own = parseMessageIDs(content.headers.value("Message-ID").value_or(""));
    if (!own.empty()) messageID = own.front();
    std::vector<OutgoingAttachment> files;
    for (const auto& one : content.attachments) {
        if (!one.isInline) files.push_back({UUID::random(), one.filename, one.mimeType, one.data});
    }
    attachments = std::move(files);
    hasSavedDraft = true;
}

MessageRecord ComposeModel::record(std::int64_t id) const {
    auto found = mail_.context().messages.find(id);
    if (!found) throw ComposeError(tr("The message is no longer there."));
    return *std::move(found);
}

void ComposeModel::setContext(const MessageRecord& original, const ParsedMessage& content) {
    ReplyContext context;
    context.sender = senderLine(original);
    context.senderName = original.fromName.empty() ? original.fromEmail : original.fromName;
    context.subject = original.subject;
    context.text = quotableText(content);
    context.senderEmail = foldedCase(original.fromEmail);
    replyContext = std::move(context);
}

/// The account, or else the first, with its signature.
void ComposeModel::useSender(std::optional<UUID> accountID) {
    const auto all = mail_.environment().allAccounts();
    if (!accountID && !all.empty()) accountID = all.front().id;
    fromAccountID = accountID;
    signature = signatureOf(accountID);
}

std::optional<std::string> ComposeModel::signatureOf(const std::optional<UUID>& accountID) const {
    return accountID ? Signatures(settings_).signature(*accountID) : std::nullopt;
}

void ComposeModel::layOut(std::string_view written) {
    body = composedBody(written, signature.value_or(""), quote.value_or(""));
}

void ComposeModel::setSender(const UUID& accountID) {
    if (*fromAccountID == accountID) return;
    const auto next = signatureOf(accountID);
    body = replacedSignature(*body, signature.value_or(""), next.value_or(""), quote.value_or(""));
    signature = next;
    fromAccountID = accountID;
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
    if (!failure) co_return true;
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
        if (failure) log("Mail").error("Couldn't save a draft: {}", pub(sentenceOf(failure)));
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
        lastSaved = mail_.environment().clock->now();
        if (revision == revision_) isDirty = false;
    } catch (...) {
        failure = std::current_exception();
    }
    isSavingDraft = false;
    saved_.raise();
    if (failure) std::rethrow_exception(failure);
}

Async<void> ComposeModel::deleteDraft() {
    saving_.cancel();
    co_await whileSaving();
    const auto sender = account();
    if (!hasSavedDraft || !messageID || !sender) co_return;
    co_await mail_.filing().deleteDraft(*sender, *messageID);
    hasSavedDraft = false;
}

Async<void> ComposeModel::close() {
    isClosed_ = true;
    saving_.cancel();
    co_await saving_.finished();
}

}
