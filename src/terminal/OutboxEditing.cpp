#include "terminal/OutboxEditing.h"

#include "base/Localisation.h"
#include "compose/BodyLayout.h"
#include "compose/Signatures.h"
#include "terminal/OutboxCommands.h"
#include "terminal/Sending.h"
#include "terminal/Writing.h"

#include <CLI/CLI.hpp>

namespace velmo {

namespace {

struct EditWords : WritingWords {
    std::string id;
    bool isDraft = false;
};

// --- While it is changed -----------------------------------------------------------------------------------------

OutboxItem waiting(OutboxItem item, const std::exception_ptr& failure) {
    item.sendAt = OutboxItem::distantFuture;
    item.failure = failure && !isCancellation(failure) ? sentenceOf(failure) : tr("It was being edited.");
    return item;
}

/// For `claim`. Whatever ends this process from here on, the message is not lost, and does not go out half changed.
Async<void> takeBack(Outbox& outbox, UUID id) {
    const bool isTaken = co_await outbox.takeBack(id);
    if (!isTaken) throw CommandError(tr("The message is being sent already."));
}

/// As it was where its time is still to come, or where it waited for the person before; otherwise it waits from now on.
Async<void> putBack(Session& session, const OutboxItem& item, const std::exception_ptr& failure) {
    Outbox& outbox = *session.app.outbox();
    outbox.claim(item.id);
    const bool isAsBefore = item.hasFailed() || (item.isScheduled && item.sendAt > session.app.clock().now());
    OutboxItem kept = item;
    if (!isAsBefore) kept = waiting(item, failure);
    co_await outbox.enqueue(std::move(kept));
}

/// With what was changed in it, for the person to go on. The model, when it was closed, has put back what it took.
Async<void> putBackChanged(Outbox& outbox, OutboxItem item, const ComposeModel& model, const WrittenContent& content,
                           const std::exception_ptr& failure) {
    if (*model.fromAccountID) {
        item.accountID = **model.fromAccountID;
        item.attachments = *model.attachments;
    }
    EditedMessage message{item.to, item.cc, item.bcc, item.subject, item.body};
    if (content.edited)
        message = *content.edited;
    else if (*model.fromAccountID)
        message = editable(model);
    item.to = std::move(message.to);
    item.cc = std::move(message.cc);
    item.bcc = std::move(message.bcc);
    item.subject = std::move(message.subject);
    item.body = std::move(message.body);
    OutboxItem kept = waiting(std::move(item), failure);
    co_await outbox.enqueue(std::move(kept));
}

// --- The change --------------------------------------------------------------------------------------------------

/// With what the words of the command change.
Async<EditedMessage> writtenMessage(Session& session, const OutboxItem& item, const WrittenContent& content) {
    const Signatures signatures(session.app.settings());
    EditedMessage message{item.to, item.cc, item.bcc, item.subject, item.body};
    changeHead(content, message);
    if (content.from && *content.from != item.accountID)
        message.body = replacedSignature(message.body, signatures.signature(item.accountID).value_or(""),
                                         signatures.signature(*content.from).value_or(""), "");
    co_return co_await edited(session, std::move(message), {}, TextPlace::whole);
}

/// Puts the changed message where it belongs, in the place of the one that was taken back.
Async<void> replaceTaken(Session& session, const OutboxItem& item, ComposeModel& model, const WrittenContent& content,
                         bool isDraft, std::optional<Date> at) {
    const ComposeRequest request(ComposeRequest::Outbox{item.id});
    co_await model.load(request);
    if (*model.errorMessage) throw CommandError(**model.errorMessage);
    apply(content, model, TextPlace::written);
    if (isDraft)
        co_await saveAsDraft(session, model);
    else
        co_await queue(model, at);
}

Async<void> changeTaken(Session& session, const OutboxItem& item, const WrittenContent& content,
                        const EditWords& words) {
    Outbox& outbox = *session.app.outbox();
    const bool keepsTime = item.isScheduled && !item.hasFailed() && item.sendAt > session.app.clock().now();
    const auto at = content.at || !keepsTime ? content.at : std::optional(item.sendAt);
    ComposeModel model(session.app.store(), outbox, session.app.settings());
    std::exception_ptr failure;
    bool isReplaced = false;
    try {
        co_await replaceTaken(session, item, model, content, words.isDraft, at);
        isReplaced = true;
        session.console.editedTextIsSafe();
        if (*model.isQueued) co_await seeOff(session, model, at);
    } catch (...) {
        failure = std::current_exception();
    }
    co_await ignoreCancellation();
    co_await model.close();
    if (!failure) co_return;
    if (!isReplaced && !*model.isQueued) {
        co_await putBackChanged(outbox, item, model, content, failure);
        session.console.editedTextIsSafe();
    }
    std::rethrow_exception(failure);
}

OutboxItemPointer itemNumbered(const Outbox& outbox, const std::string& word) {
    const UUID id = outboxNumber(word);
    auto item = outbox.item(id);
    if (!item) throw CommandError(tr("There is no message {} in the outbox.", id.text()));
    return item;
}

Async<void> edit(Session& session, const EditWords& words) {
    const Outbox* outbox = co_await openOutbox(session);
    WrittenContent content = co_await writtenContent(session, words);
    const OutboxItem item = *itemNumbered(*outbox, words.id);
    co_await uninterrupted([&] { return takeBack(*session.app.outbox(), item.id); });
    std::exception_ptr failure;
    try {
        co_await checkCancellation();
        if (wantsEditor(session, words)) content.edited = co_await writtenMessage(session, item, content);
    } catch (...) {
        failure = std::current_exception();
    }
    if (failure) {
        co_await ignoreCancellation();
        co_await putBack(session, item, failure);
        std::rethrow_exception(failure);
    }
    co_await changeTaken(session, item, content, words);
    session.tellNotices();
}

}

void addOutboxEdit(CLI::App& outbox, CommandBody& body) {
    auto words = std::make_shared<EditWords>();
    auto* editing = outbox.add_subcommand("edit", tr("Change a message, and send it anew; it keeps a chosen time"));
    editing->add_option("ID", words->id, tr("Number of the message, as: velmo outbox"))->required();
    addWritingOptions(*editing, words);
    addWithoutOption(*editing, words);
    editing->add_flag("--draft", words->isDraft, tr("Store it as a draft, and send nothing"));
    editing->callback([words, &body] { body = [words](Session& session) { return edit(session, *words); }; });
}

}
