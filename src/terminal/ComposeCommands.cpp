#include "terminal/ComposeCommands.h"

#include "base/Localisation.h"
#include "base/Text.h"
#include "compose/ReplyRecipients.h"
#include "formats/ShownAddress.h"
#include "platform/CaseFolding.h"
#include "terminal/Failure.h"
#include "terminal/InputText.h"
#include "terminal/MessageNumbers.h"
#include "terminal/MessageRows.h"
#include "terminal/OutboxCommands.h"
#include "terminal/Sending.h"
#include "terminal/TextEditor.h"
#include "terminal/Writing.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <nlohmann/json.hpp>
#include <utility>

namespace velmo {

namespace {

struct ComposeWords : WritingWords {
    std::int64_t id = 0; ///< of the message that is answered, passed on or edited
    std::string url;
    bool isToAll = false;
    bool isDraft = false;
    bool isToBeSent = false;  ///< a draft
    bool isConfirmed = false; ///< a link may send
};

enum class Kind { fresh, reply, forward, followUp, link, draft };

ComposeRequest requestOf(Session& session, Kind kind, const ComposeWords& words) {
    std::optional<UUID> from;
    if (words.from) from = accountNamed(session, *words.from).id;
    switch (kind) {
    case Kind::reply: return ComposeRequest::Reply{words.id, words.isToAll, {}, UUID::random()};
    case Kind::forward: return ComposeRequest::Forward{words.id, UUID::random()};
    case Kind::followUp: return ComposeRequest::FollowUp{words.id, UUID::random()};
    case Kind::link: return ComposeRequest::Mailto{words.url, from, UUID::random()};
    case Kind::draft: return ComposeRequest::EditDraft{words.id, UUID::random()};
    case Kind::fresh: break;
    }
    return ComposeRequest::New{from, UUID::random()};
}

Async<void> load(ComposeModel& model, ComposeRequest request) {
    co_await model.load(std::move(request));
    if (*model.errorMessage) throw CommandError(**model.errorMessage);
}

bool isStored(Kind kind, const ComposeWords& words) {
    return words.isDraft || (kind == Kind::draft && !words.isToBeSent && !words.at);
}

// --- The text ----------------------------------------------------------------------------------------------------

/// What is passed on, or stands in a draft, says something without a further word.
bool needsWords(Kind kind) {
    return kind != Kind::forward && kind != Kind::draft;
}

/// What the person should know before they write.
std::vector<std::string> remarks(Session& session, Kind kind, const ComposeWords& words) {
    std::vector<std::string> remarks;
    const auto original = kind == Kind::reply ? session.app.mail().messages.find(words.id) : std::nullopt;
    if (!original) return remarks;
    for (const auto& address : foreignReplyTo(*original))
        remarks.push_back(tr("The message came from {} and asks for answers to another domain: {}",
                             shownAddress(original->fromName, original->fromEmail),
                             shownAddress(address.name.value_or(""), address.email)));
    return remarks;
}

/// What comes on a pipe is the text. A draft has one, and a command that changes it in a loop leaves the loop its
/// input.
Async<void> takePipedText(Session& session, Kind kind, const ComposeWords& words, WrittenContent& content) {
    if (kind == Kind::draft || words.bodyFile || session.console.inputIsTerminal()) co_return;
    std::string text = co_await inputText(session, "-");
    if (!text::trimmedUnicode(text).empty()) content.given = std::move(text);
}

/// Where nothing was written, and nobody can be asked to, nothing goes out.
void refuseUnwritten(Kind kind, const ComposeWords& words, const WrittenContent& content) {
    if (!needsWords(kind) || kind == Kind::link || isStored(kind, words) || words.keepsText) return;
    if (content.given && !text::trimmedUnicode(*content.given).empty()) return;
    throw UsageError(tr("Nothing was written, so nothing is sent. Give the text on standard input or with --body-file, "
                        "or use --no-edit to send it without one."));
}

/// The message before anybody has written in it. The model it comes from does not last, so that no draft of it is saved
/// while the person writes. Throws what would keep them from writing it.
Async<EditedMessage> initialMessage(Session& session, Kind kind, const ComposeWords& words,
                                    const WrittenContent& content) {
    ComposeModel model(session.app.store(), *session.app.outbox(), session.app.settings());
    const ComposeRequest request = requestOf(session, kind, words);
    std::exception_ptr failure;
    try {
        co_await load(model, request);
        apply(content, model, TextPlace::above);
    } catch (...) {
        failure = std::current_exception();
    }
    co_await ignoreCancellation();
    co_await model.close();
    if (failure) std::rethrow_exception(failure);
    co_await allowCancellation();
    co_return editable(model);
}

Async<EditedMessage> writtenMessage(Session& session, Kind kind, const ComposeWords& words,
                                    const WrittenContent& content) {
    EditedMessage message = co_await initialMessage(session, kind, words, content);
    const bool hasText = kind == Kind::draft || (kind == Kind::link && !message.body.starts_with("-- \n"));
    const TextPlace place = hasText ? TextPlace::whole : TextPlace::above;
    EditedMessage written = co_await edited(session, message, remarks(session, kind, words), place);
    if (written.body == message.body && needsWords(kind))
        throw CommandError(tr("The text was left as it was, so nothing is done. Use --no-edit to leave it so."));
    if (!isStored(kind, words) && written.to.empty() && written.cc.empty() && written.bcc.empty())
        throw CommandError(tr("There is nobody to send it to."));
    co_return written;
}

/// What a person wrote must not go with a failure: it becomes a draft, or waits in the outbox, or else in a file.
Async<void> saveWritten(ComposeModel& model, const WrittenContent& content) {
    apply(content, model, TextPlace::whole);
    try {
        co_await model.saveDraft();
    } catch (const std::exception&) {
        // Then the model keeps it otherwise, when it is closed.
    }
}

/// Says where what the person wrote is kept; otherwise its file stays.
void tellPlace(Session& session, const ComposeModel& model) {
    const auto& items = *session.app.outbox()->items;
    const auto kept =
        std::ranges::find(items, model.messageID, [](const auto& item) { return std::optional(item->messageID); });
    if (model.lastSaved->has_value())
        session.console.note(tr("What you wrote is stored as a draft."));
    else if (kept != items.end())
        session.console.note(tr("What you wrote waits in the outbox as {}.", (*kept)->id.text()));
    else
        return;
    session.console.editedTextIsSafe();
}

// --- Drafts ------------------------------------------------------------------------------------------------------

MessageRecord draftNumbered(Session& session, std::int64_t id) {
    const std::vector<std::int64_t> ids{id};
    MessageRecord draft = messagesNumbered(session, ids).front();
    const auto mailbox = session.app.mail().mailboxes.find(MailboxKey{draft.accountID, draft.mailboxPath});
    if (!mailbox || mailbox->role() != MailboxRole::drafts)
        throw CommandError(tr("Message {} is no draft. See: velmo drafts", id));
    return draft;
}

/// One reminds of one's own mail; what others sent is answered.
void refuseReceived(Session& session, std::int64_t id) {
    const std::vector<std::int64_t> ids{id};
    const MessageRecord message = messagesNumbered(session, ids).front();
    const auto mailbox = session.app.mail().mailboxes.find(MailboxKey{message.accountID, message.mailboxPath});
    const bool isSent = mailbox && mailbox->role() == MailboxRole::sent;
    const bool isOwn = std::ranges::any_of(session.app.mailAccounts(), [&](const auto& account) {
        return foldedCase(account.email) == foldedCase(message.fromEmail);
    });
    if (!isSent && !isOwn)
        throw CommandError(tr("You did not send message {}, so there is nothing to remind of. Answer it with: velmo "
                              "reply {}",
                              id, id));
}

Async<void> deleteNumbered(Session& session, std::int64_t id, bool isConfirmed) {
    co_await openOutbox(session);
    const MessageRecord draft = draftNumbered(session, id);
    if (!isConfirmed && session.console.inputIsTerminal()) {
        const auto answer = co_await session.confirmed(tr("Delete the draft “{}” for good?", printable(draft.subject)));
        if (!answer.value_or(false)) throw CommandError(tr("Nothing is deleted."));
    }
    const auto account = session.app.store().environment().account(draft.accountID);
    if (account) co_await session.app.store().filing().deleteDraft(*account, draft);
    if (session.isJSON())
        session.print({{"id", id}, {"done", "delete"}});
    else
        session.console.line(tr("Draft deleted."));
}

// --- Links -------------------------------------------------------------------------------------------------------

constexpr const char* linkRule = "A link never sends mail by itself. Look at it with --draft, or send it with --yes.";

void refuseUnseenLink(const Session& session, Kind kind, const ComposeWords& words) {
    const bool isFree = kind != Kind::link || words.isConfirmed || isStored(kind, words);
    if (!isFree && !session.console.inputIsTerminal()) throw UsageError(tr(linkRule));
}

void showRecipients(Session& session, const ComposeModel& model) {
    const std::pair<const char*, const std::vector<IMAPAddress>&> fields[]{
        {"To", *model.to}, {"Cc", *model.cc}, {"Bcc", *model.bcc}};
    for (const auto& [name, addresses] : fields) {
        std::string line;
        for (const auto& one : addresses) line += (line.empty() ? "" : ", ") + one.formatted();
        if (!line.empty()) session.console.note(fmt::format("{}: {}", name, printable(line)));
    }
    session.console.note(tr("Subject: {}", printable(*model.subject)));
}

/// Whoever made the link chose whom it goes to and what it says; the person who sends it has to have seen that.
Async<bool> mayLinkSend(Session& session, const ComposeModel& model, const ComposeWords& words) {
    if (words.isConfirmed) co_return true;
    showRecipients(session, model);
    const auto answer = co_await session.confirmed(tr("Send it?"));
    co_return answer.value_or(false);
}

// --- Commands ----------------------------------------------------------------------------------------------------

Async<void> finish(Session& session, ComposeModel& model, Kind kind, const ComposeWords& words,
                   std::optional<Date> at) {
    bool isStoredOnly = isStored(kind, words);
    if (kind == Kind::link && !isStoredOnly) {
        const bool maySend = co_await mayLinkSend(session, model, words);
        isStoredOnly = !maySend;
    }
    if (isStoredOnly) {
        co_await saveAsDraft(session, model);
    } else {
        co_await queue(model, at);
        session.console.editedTextIsSafe();
        co_await seeOff(session, model, at);
    }
}

Async<void> write(Session& session, const ComposeWords& words, Kind kind) {
    Outbox* outbox = co_await openOutbox(session);
    if (kind == Kind::draft) draftNumbered(session, words.id);
    if (kind == Kind::followUp) refuseReceived(session, words.id);
    refuseUnseenLink(session, kind, words);
    WrittenContent content = co_await writtenContent(session, words);
    co_await takePipedText(session, kind, words, content);
    if (wantsEditor(session, words))
        content.edited = co_await writtenMessage(session, kind, words, content);
    else
        refuseUnwritten(kind, words, content);
    for (const auto& remark : remarks(session, kind, words)) session.console.note(printable(remark));
    ComposeModel model(session.app.store(), *outbox, session.app.settings());
    const ComposeRequest request = requestOf(session, kind, words);
    std::exception_ptr failure;
    try {
        co_await load(model, request);
        apply(content, model, kind == Kind::draft ? TextPlace::whole : TextPlace::above);
        co_await finish(session, model, kind, words, content.at);
    } catch (...) {
        failure = std::current_exception();
    }
    co_await ignoreCancellation();
    const bool isLost = failure && !*model.isQueued;
    if (isLost && content.edited && !isStored(kind, words) && !isCancellation(failure))
        co_await saveWritten(model, content);
    co_await model.close();
    if (isLost) tellPlace(session, model);
    session.tellNotices();
    if (failure) std::rethrow_exception(failure);
}

std::shared_ptr<ComposeWords> addWriting(CLI::App& command, CommandBody& body, Kind kind) {
    auto words = std::make_shared<ComposeWords>();
    addWritingOptions(command, words);
    if (kind != Kind::draft) command.add_flag("--draft", words->isDraft, tr("Store it as a draft, and send nothing"));
    command.callback(
        [words, kind, &body] { body = [words, kind](Session& session) { return write(session, *words, kind); }; });
    return words;
}

void addAnswering(CLI::App& program, CommandBody& body, const char* name, const char* help, Kind kind) {
    auto* command = program.add_subcommand(name, tr(help));
    const auto words = addWriting(*command, body, kind);
    command->add_option("ID", words->id, tr("Number of a message in a list"))->required()->check(messageNumberTrouble);
    if (kind == Kind::reply) command->add_flag("--all", words->isToAll, tr("Answer all who got it"));
}

void addDraftCommands(CLI::App& program, CommandBody& body) {
    auto* drafts = program.add_subcommand("draft", tr("Change, send or delete a draft; see: velmo drafts"));
    drafts->require_subcommand(1);
    auto* editing = drafts->add_subcommand("edit", tr("Change a draft, and store it again or send it"));
    const auto words = addWriting(*editing, body, Kind::draft);
    addWithoutOption(*editing, words);
    editing->add_option("ID", words->id, tr("Number of the draft"))->required()->check(messageNumberTrouble);
    editing->add_flag("--send", words->isToBeSent, tr("Send it"));
    auto* deleting = drafts->add_subcommand("delete", tr("Delete a draft for good"));
    auto id = std::make_shared<std::int64_t>();
    deleting->add_option("ID", *id, tr("Number of the draft"))->required()->check(messageNumberTrouble);
    auto isConfirmed = std::make_shared<bool>(false);
    deleting->add_flag("--yes", *isConfirmed, tr("Delete it without asking"));
    deleting->callback([id, isConfirmed, &body] {
        body = [id, isConfirmed](Session& session) { return deleteNumbered(session, *id, *isConfirmed); };
    });
}

}

void addComposeCommands(CLI::App& program, CommandBody& body) {
    addWriting(*program.add_subcommand("compose", tr("Write a new message")), body, Kind::fresh);
    addAnswering(program, body, "reply", "Answer a message", Kind::reply);
    addAnswering(program, body, "forward", "Pass a message on", Kind::forward);
    addAnswering(program, body, "followup", "Remind of a message that got no answer", Kind::followUp);
    auto* link = program.add_subcommand("mailto", tr("Write to a link of mail"));
    const auto words = addWriting(*link, body, Kind::link);
    link->add_option("URL", words->url, tr("The link"))->required();
    link->add_flag("--yes", words->isConfirmed, tr("Send it without asking"));
    addDraftCommands(program, body);
}

}
