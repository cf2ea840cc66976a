#include "compose/ComposeModel.h"

#include "base/Localisation.h"
#include "base/Text.h"
#include "base/UserError.h"
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
#include "formats/ShownAddress.h"
#include "platform/CaseFolding.h"

#include <algorithm>
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
    if (taken_) changed(); // it is kept nowhere else
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
    taken_ = taken;
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
    if (hasSavedDraft) noteDraft(taken->accountID);
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
        // Pictures that another program put into the text go along as files, since the text is plain here.
        const bool isOwn = Signatures::isPicture(one.contentID.value_or(""));
        if (!isOwn) files.push_back({UUID::random(), one.filename, one.mimeType, one.data});
    }
    attachments = std::move(files);
    if (inReplyTo) answering = messageWith(*inReplyTo, draft.accountID);
    hasSavedDraft = true;
    draft_ = draft;
}

/// Absent when the account does not hold it.
std::optional<std::int64_t> ComposeModel::messageWith(const std::string& identifier, const UUID& accountID) const {
    for (const auto id : mail_.context().lists.idsOf({identifier})) {
        const auto found = mail_.context().messages.find(id);
        if (found && found->accountID == accountID) return id;
    }
    return std::nullopt;
}

MessageRecord ComposeModel::record(std::int64_t id) const {
    auto found = mail_.context().messages.find(id);
    if (!found) throw ComposeError(tr("The message is no longer there."));
    return *std::move(found);
}

void ComposeModel::setContext(const MessageRecord& original, const ParsedMessage& content) {
    ReplyContext context;
    context.sender = senderLine(original);
    context.senderName = shortAddress(original.fromName, original.fromEmail);
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

}
