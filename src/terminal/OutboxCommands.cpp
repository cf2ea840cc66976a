#include "terminal/OutboxCommands.h"

#include "base/Localisation.h"
#include "base/Text.h"
#include "compose/ComposeModel.h"
#include "terminal/DateWords.h"
#include "terminal/InputText.h"
#include "terminal/OutboxEditing.h"

#include <CLI/CLI.hpp>
#include <array>
#include <nlohmann/json.hpp>

namespace velmo {

namespace {

using nlohmann::json;

std::string accountOf(Session& session, const OutboxItem& item) {
    const auto account = session.app.store().environment().account(item.accountID);
    return account ? account->email : std::string();
}

json jsonOf(const std::vector<IMAPAddress>& addresses) {
    auto list = json::array();
    for (const auto& address : addresses)
        list.push_back({{"name", address.name.value_or("").empty() ? json(nullptr) : json(*address.name)},
                        {"email", address.email}});
    return list;
}

std::string stateOf(const Outbox& outbox, const OutboxItem& item) {
    if (outbox.sending->contains(item.id)) return "sending";
    return item.hasFailed() ? "failed" : "waiting";
}

json jsonOf(Session& session, const Outbox& outbox, const OutboxItem& item) {
    json entry{{"id", item.id.text()},           {"account", accountOf(session, item)},
               {"to", jsonOf(item.to)},          {"cc", jsonOf(item.cc)},
               {"bcc", jsonOf(item.bcc)},        {"subject", item.subject},
               {"messageID", item.messageID},    {"scheduled", item.isScheduled},
               {"state", stateOf(outbox, item)}, {"attachments", json::array()}};
    entry["sendAt"] = item.hasFailed() ? json(nullptr) : json(iso8601(item.sendAt));
    entry["failure"] = item.failure ? json(*item.failure) : json(nullptr);
    for (const auto& one : item.attachments) entry["attachments"].push_back(one.filename);
    return entry;
}

std::string recipientsOf(const OutboxItem& item) {
    std::string list;
    for (const auto* addresses : {&item.to, &item.cc, &item.bcc}) {
        for (const auto& address : *addresses) list += (list.empty() ? "" : ", ") + address.email;
    }
    return list;
}

std::string timeText(const Outbox& outbox, const OutboxItem& item) {
    if (outbox.sending->contains(item.id)) return tr("sending");
    return item.hasFailed() ? tr("failed") : longDate(item.sendAt);
}

Async<void> list(Session& session) {
    const Outbox* outbox = co_await openOutbox(session);
    if (session.isJSON()) {
        auto document = json::array();
        for (const auto& item : *outbox->items) document.push_back(jsonOf(session, *outbox, *item));
        session.print(document);
        co_return;
    }
    if (outbox->items->empty()) session.console.line(tr("The outbox is empty."));
    for (const auto& item : *outbox->items) {
        session.console.line(fmt::format("{}  {}  {}  {}", item->id.text(), printable(timeText(*outbox, *item)),
                                         printable(recipientsOf(*item)), printable(item->subject)));
        if (item->failure) session.console.line("    " + printable(*item->failure));
    }
}

/// Something that is done to one message of the outbox; false when it is gone or being sent.
struct OutboxAction {
    const char* name;
    const char* help;
    const char* done;
    Async<bool> (*act)(Session&, UUID);
};

Async<bool> retry(Session& session, UUID id) {
    Outbox& outbox = *session.app.outbox();
    const bool isTaken = co_await outbox.retry(id);
    // A process that ends with the command sends it itself.
    if (!isTaken || session.place == Session::Place::application) co_return isTaken;
    outbox.start();
    co_await outbox.finished();
    const auto left = outbox.item(id);
    if (left && left->failure) throw CommandError(*left->failure);
    co_return true;
}

Async<bool> discard(Session& session, UUID id) {
    Outbox& outbox = *session.app.outbox();
    const bool isTaken = co_await outbox.discard(id);
    if (session.place == Session::Place::ownProcess) co_await outbox.finished();
    co_return isTaken;
}

constexpr std::array actions{
    OutboxAction{"retry", "Send a message now", "It is on its way.", retry},
    OutboxAction{"discard", "Drop a message and its draft", "Discarded.", discard},
    OutboxAction{"undo", "Take a message back, and store it as a draft", "Taken back, saved as draft.",
                 takeBackAsDraft},
};

/// The one that was queued last, of those that go as soon as their time to take them back is over.
UUID lastQueued(const Outbox& outbox) {
    OutboxItemPointer last;
    for (const auto& item : *outbox.items)
        if (!item->hasFailed() && !item->isScheduled && (!last || item->sendAt > last->sendAt)) last = item;
    if (!last)
        throw CommandError(
            tr("No message is about to go. Name a scheduled one by its number, as velmo outbox shows it."));
    return last->id;
}

Async<void> run(Session& session, const OutboxAction& action, std::string word) {
    const Outbox* outbox = co_await openOutbox(session);
    const UUID id = word.empty() ? lastQueued(*outbox) : outboxNumber(word);
    if (!outbox->item(id)) throw CommandError(tr("There is no message {} in the outbox.", id.text()));
    const bool isDone = co_await action.act(session, id);
    if (!isDone) throw CommandError(tr("The message is being sent already."));
    if (session.isJSON())
        session.print({{"id", id.text()}, {"done", action.name}});
    else
        session.console.line(tr(action.done));
}

}

Async<Outbox*> openOutbox(Session& session) {
    co_await session.app.openMail();
    Outbox* outbox = session.app.outbox();
    if (outbox == nullptr)
        throw CommandError(tr("There is no account yet. Add one with: velmo accounts add --email YOU@…"));
    co_await outbox->loaded();
    co_return outbox;
}

UUID outboxNumber(const std::string& word) {
    const auto id = UUID::parse(word);
    if (!id) throw CommandError(tr("{} is no number of a message in the outbox.", shownWord(word)));
    return *id;
}

Async<bool> takeBackAsDraft(Session& session, UUID id) {
    Outbox& outbox = *session.app.outbox();
    const auto item = outbox.item(id);
    bool isTaken = false;
    co_await uninterrupted([&]() -> Async<void> { isTaken = co_await outbox.takeBack(id); });
    if (isTaken) co_await storeTakenAsDraft(session, *item);
    co_return isTaken;
}

Async<void> storeTakenAsDraft(Session& session, const OutboxItem& item) {
    Outbox& outbox = *session.app.outbox();
    ComposeModel model(session.app.store(), outbox, session.app.settings());
    const ComposeRequest request(ComposeRequest::Outbox{item.id});
    std::exception_ptr failure;
    try {
        co_await model.load(request);
        co_await model.saveDraft();
    } catch (...) {
        failure = std::current_exception();
    }
    co_await ignoreCancellation();
    co_await model.close();
    if (!failure) co_return;
    OutboxItem kept = item;
    kept.sendAt = OutboxItem::distantFuture;
    kept.failure = isCancellation(failure) ? tr("It was taken back.") : sentenceOf(failure);
    co_await outbox.enqueue(std::move(kept));
    std::rethrow_exception(failure);
}

void addOutboxCommands(CLI::App& program, CommandBody& body) {
    auto* command = program.add_subcommand("outbox", tr("Messages that are on their way out"));
    command->require_subcommand(0, 1);
    command->callback([&body, command] {
        if (command->get_subcommands().empty()) body = list;
    });
    for (const auto& action : actions) {
        auto* sub = command->add_subcommand(action.name, tr(action.help));
        auto word = std::make_shared<std::string>();
        const bool hasDefault = std::string_view(action.name) == "undo";
        sub->add_option("ID", *word,
                        hasDefault ? tr("Number of the message; without one, the message that was queued last")
                                   : tr("Number of the message, as: velmo outbox"))
            ->required(!hasDefault);
        sub->callback([&body, &action, word] {
            body = [&action, word](Session& session) { return run(session, action, *word); };
        });
    }
    addOutboxEdit(*command, body);
}

}
