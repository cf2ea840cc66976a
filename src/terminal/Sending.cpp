#include "terminal/Sending.h"

#include "base/Localisation.h"
#include "terminal/OutboxCommands.h"

#include <nlohmann/json.hpp>

namespace velmo {

namespace {

/// What the terminal looks at while a message waits to go.
constexpr Duration look{200};

constexpr std::size_t newest = 50;

/// Waits in a process of its own until the message is gone; a person who interrupts takes it back.
Async<void> seeOut(Session& session, UUID id) {
    Outbox& outbox = *session.app.outbox();
    outbox.start();
    std::exception_ptr failure;
    try {
        for (auto item = outbox.item(id); item && !item->failure; item = outbox.item(id)) {
            const auto left = std::chrono::ceil<std::chrono::seconds>(item->sendAt - session.app.clock().now()).count();
            session.console.progress(left > 0 ? tr("Sending in {} s (Ctrl+C takes it back)", left) : tr("Sending"));
            co_await session.app.clock().wait(look);
        }
    } catch (...) {
        failure = std::current_exception();
    }
    session.console.progress({});
    co_await ignoreCancellation();
    if (failure) {
        const bool isTaken = co_await takeBackAsDraft(session, id);
        if (!isTaken) std::rethrow_exception(failure);
        session.console.note(tr("Taken back, saved as draft."));
        std::rethrow_exception(failure);
    }
    const auto left = outbox.item(id);
    if (left && left->failure) throw CommandError(*left->failure);
    co_await outbox.finished();
}

nlohmann::json documentOf(const ComposeModel& model, const char* state) {
    return {{"state", state},
            {"messageID", model.messageID.value_or("")},
            {"id", model.queuedItem() ? nlohmann::json(model.queuedItem()->text()) : nlohmann::json(nullptr)},
            {"draft", nullptr}};
}

void tell(Session& session, const ComposeModel& model, const char* state, const std::string& line) {
    if (session.isJSON())
        session.print(documentOf(model, state));
    else
        session.console.line(line);
}

/// The number of the draft in the list of drafts, among the newest of which it is.
std::optional<std::int64_t> storedDraft(Session& session, const ComposeModel& model) {
    for (const auto& mailbox : session.app.mail().mailboxes.of(**model.fromAccountID)) {
        if (mailbox.role() != MailboxRole::drafts) continue;
        const MessagePageRequest request(mailbox, newest);
        for (const auto& one : session.app.store().lists().page(request).records)
            if (one.messageID == model.messageID) return one.id;
    }
    return std::nullopt;
}

}

Async<void> saveAsDraft(Session& session, ComposeModel& model) {
    co_await model.saveDraft();
    if (!model.hasSavedDraft) throw CommandError(tr("There is nothing to save yet."));
    const auto row = storedDraft(session, model);
    if (!session.isJSON()) {
        session.console.line(row ? tr("Draft saved as {}.", *row) : tr("Draft saved."));
        co_return;
    }
    auto document = documentOf(model, "draft");
    if (row) document["draft"] = *row;
    session.print(document);
}

Async<void> queue(ComposeModel& model, std::optional<Date> at) {
    const bool isQueued = co_await model.send(at);
    if (!isQueued) throw CommandError(model.errorMessage->value_or(tr("There is nobody to send it to.")));
}

Async<void> seeOff(Session& session, const ComposeModel& model, std::optional<Date> at) {
    const UUID id = *model.queuedItem();
    const bool isOwn = session.place == Session::Place::ownProcess;
    if (at) {
        tell(session, model, "scheduled", tr("Scheduled as {}.", id.text()));
        if (isOwn) session.console.note(tr("It is sent while velmo-mail runs."));
        co_return;
    }
    if (isOwn) {
        co_await seeOut(session, id);
        tell(session, model, "sent", tr("Message sent."));
        co_return;
    }
    const auto seconds = Outbox::undoWindow(session.app.settings()).count();
    tell(session, model, "queued",
         tr("Message sent. For {} s, take it back with: velmo outbox undo {}", seconds, id.text()));
}

}
