#include "terminal/ActionCommands.h"

#include "base/Localisation.h"
#include "base/Text.h"
#include "terminal/MessageRows.h"
#include "terminal/OutboxCommands.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>
#include <set>

namespace velmo {

namespace {

struct ActionWords {
    std::vector<std::int64_t> ids;
    std::string text;      ///< path or key
    bool needsYes = false; ///< it can't be undone for long
    bool isConfirmed = false;
};

using Records = std::vector<MessageRecord>;

using Taken = MessageActions::Taken;

/// Does it to messages that are there. Gives the numbers of those that it took.
using Act = Taken (*)(Session&, const Records&, const ActionWords&);

struct Action {
    const char* name;
    const char* help;
    Act act;
};

MessageActions& actionsOf(Session& session) {
    return session.app.store().actions();
}

const std::array simpleActions{
    Action{"archive", "Move messages to the archive",
           [](Session& s, const Records& r, const ActionWords&) { return actionsOf(s).archive(r); }},
    Action{"junk", "Move messages to the junk mailbox; from there, back to the inbox",
           [](Session& s, const Records& r, const ActionWords&) { return actionsOf(s).moveToJunk(r); }},
    Action{"trash", "Move messages to the trash; from there, delete them for good",
           [](Session& s, const Records& r, const ActionWords&) { return actionsOf(s).moveToTrash(r); }},
    Action{"inbox", "Move messages to the inbox",
           [](Session& s, const Records& r, const ActionWords&) { return actionsOf(s).moveToInbox(r); }},
    Action{"delete", "Delete messages for good",
           [](Session& s, const Records& r, const ActionWords&) {
               return actionsOf(s).deleteForever(
                   r, r.size() == 1 ? tr("Deleted") : trCount("Deleted {} message", "Deleted {} messages", r.size()));
           }},
    Action{"flag", "Flag messages",
           [](Session& s, const Records& r, const ActionWords&) {
               return actionsOf(s).setFlagged(r, MessageActions::FlagState::flagged);
           }},
    Action{"unflag", "Take the flag from messages",
           [](Session& s, const Records& r, const ActionWords&) {
               return actionsOf(s).setFlagged(r, MessageActions::FlagState::unflagged);
           }},
    Action{"seen", "Mark messages as read",
           [](Session& s, const Records& r, const ActionWords&) {
               return actionsOf(s).setRead(r, MessageActions::ReadState::read);
           }},
    Action{"unseen", "Mark messages as unread",
           [](Session& s, const Records& r, const ActionWords&) {
               return actionsOf(s).setRead(r, MessageActions::ReadState::unread);
           }},
};

Taken move(Session& session, const Records& records, const ActionWords& words) {
    const std::string path = canonicalMailboxPath(words.text);
    for (const auto& record : records)
        if (!session.app.mail().mailboxes.find(MailboxKey{record.accountID, path}))
            throw CommandError(tr("There is no mailbox {}.", printable(text::repairedUTF8(words.text))));
    return actionsOf(session).move(records, path);
}

Taken setLabel(Session& session, const Records& records, const ActionWords& words, LabelChange change) {
    if (!session.app.mail().labels.find(words.text))
        throw CommandError(tr("There is no label {}.", printable(text::repairedUTF8(words.text))));
    return actionsOf(session).label(records, words.text, change);
}

Taken addLabel(Session& session, const Records& records, const ActionWords& words) {
    return setLabel(session, records, words, LabelChange::add);
}

Taken removeLabel(Session& session, const Records& records, const ActionWords& words) {
    return setLabel(session, records, words, LabelChange::remove);
}

/// How long a command waits for the server before it says that it is done here.
constexpr Duration mostForServer{4'000};

std::optional<UUID> bannerID(Session& session) {
    const auto& banner = session.app.store().status().banner.get();
    return banner ? std::optional(banner->id) : std::nullopt;
}

/// The words of the message line, as a failure when they tell of one; none while it is the line of before.
std::string newBannerText(Session& session, const std::optional<UUID>& before) {
    const auto& banner = session.app.store().status().banner.get();
    if (!banner || banner->id == before) return {};
    if (banner->isError) throw CommandError(banner->text);
    return banner->text;
}

/// Why an action took none of these messages.
std::string whyNone(Session& session, const Records& records) {
    if (session.app.isShowingSamples()) return tr("Sample mail is on no server, so that it can't be moved or deleted.");
    const auto& hidden = session.app.store().status().hidden.get();
    if (std::ranges::any_of(records, [&](const auto& record) { return hidden.contains(record.id); }))
        return trCount("The message is leaving its mailbox already.",
                       "The messages are leaving their mailboxes already.", records.size());
    return trCount("There is nothing to do: the message is there already.",
                   "There is nothing to do: the messages are there already.", records.size());
}

void tell(Session& session, const std::string& done, bool canUndo) {
    std::string line = done.empty() ? tr("Done") : done;
    if (canUndo)
        line += " " + tr("(the server hears of it in a few seconds; until then take it back with: velmo undo)");
    session.console.line(printable(line));
    if (session.app.isShowingSamples())
        session.console.note(tr("This is sample mail: the next command finds it as it was."));
}

/// What a server does not hear of now may come back later.
void tellOutOfReach(Session& session, const Records& records) {
    std::set<UUID> accounts;
    for (const auto& record : records) accounts.insert(record.accountID);
    for (const auto& id : accounts) {
        const SyncStatus status = session.app.store().status().of(id);
        if (status.kind == SyncStatus::Kind::failed)
            session.console.note(tr("The mail server did not answer the last time: {}", printable(status.text)));
    }
}

/// A script that deletes means it; a person may have mistaken a number.
Async<void> confirmDeletion(Session& session, const Records& records) {
    if (!session.console.inputIsTerminal()) co_return;
    for (const auto& record : records)
        session.console.note(
            fmt::format("{}  {}  {}", record.id, printable(record.fromEmail), printable(record.subject)));
    const auto answer = co_await session.confirmed(
        trCount("Delete this message for good?", "Delete these messages for good?", records.size()));
    if (!answer.value_or(false)) throw CommandError(tr("Nothing is deleted."));
}

/// In a process of its own an action is carried out before the process ends; in the running application it can be
/// undone for a while.
Async<void> run(Session& session, const ActionWords& words, Act act, const char* name) {
    co_await session.app.openMail();
    const Records records = messagesNumbered(session, words.ids);
    if (words.needsYes && !words.isConfirmed) co_await confirmDeletion(session, records);
    const auto before = bannerID(session);
    const Taken taken = act(session, records, words);
    const std::string done = newBannerText(session, before);
    if (taken.empty()) throw CommandError(whyNone(session, records));
    const bool canUndo = !done.empty() && session.place == Session::Place::application;
    tellOutOfReach(session, records);
    if (!canUndo && session.place == Session::Place::application) {
        co_await within(session.app.clock(), mostForServer, [&session] { return actionsOf(session).finished(); });
        newBannerText(session, before);
    }
    if (session.place == Session::Place::ownProcess) {
        actionsOf(session).commitPendingAction();
        co_await actionsOf(session).finished();
        newBannerText(session, before);
    }
    session.tellNotices();
    if (session.isJSON()) {
        auto messages = words.ids;
        std::erase_if(messages, [&](auto id) { return !taken.contains(id); });
        session.print({{"action", name}, {"messages", std::move(messages)}, {"canUndo", canUndo}});
    } else {
        tell(session, done, canUndo);
    }
}

/// The last thing that a person did was to send.
Async<void> undoSend(Session& session, UUID id) {
    const bool isTaken = co_await takeBackAsDraft(session, id);
    if (!isTaken) throw CommandError(tr("The message has been sent already."));
    session.app.store().status().banner = std::optional<Banner>();
    if (session.isJSON())
        session.print({{"undone", tr("Message sent")}});
    else
        session.console.line(tr("Taken back, saved as draft."));
}

Async<void> undo(Session& session) {
    co_await session.app.openMail();
    const auto& banner = *session.app.store().status().banner;
    if (banner && banner->outboxID) {
        const UUID id = *banner->outboxID;
        co_await undoSend(session, id);
        co_return;
    }
    const auto what = actionsOf(session).undoable();
    if (!what) throw CommandError(tr("There is nothing to undo."));
    actionsOf(session).undo();
    if (session.isJSON())
        session.print({{"undone", *what}});
    else
        session.console.line(tr("Undone: {}", printable(*what)));
}

CLI::App* addAction(CLI::App& program, CommandBody& body, const char* name, const char* help, Act act,
                    const std::shared_ptr<ActionWords>& words) {
    auto* command = program.add_subcommand(name, tr(help));
    command->add_option("ID", words->ids, tr("Numbers of messages in a list"))->required();
    command->callback([words, act, name, &body] {
        body = [words, act, name](Session& session) { return run(session, *words, act, name); };
    });
    return command;
}

/// The last word is the key of a label, and those before it are numbers. The parser would take it for one of them.
ActionWords labelWords(std::vector<std::string> all) {
    ActionWords words;
    words.text = std::move(all.back());
    all.pop_back();
    for (const auto& number : all)
        if (!CLI::detail::lexical_cast(number, words.ids.emplace_back())) throw CLI::ConversionError(number, "ID");
    return words;
}

void addLabelAction(CLI::App& program, CommandBody& body, const char* name, const char* help, Act act) {
    constexpr int atLeast = 2;
    auto* command = program.add_subcommand(name, tr(help));
    auto all = std::make_shared<std::vector<std::string>>();
    command->add_option("ID", *all, tr("Numbers of messages in a list, then the key of a label; see: velmo labels"))
        ->required()
        ->expected(atLeast, CLI::detail::expected_max_vector_size)
        ->option_text("ID... KEY");
    command->callback([all, act, name, &body] {
        const auto words = std::make_shared<const ActionWords>(labelWords(*all));
        body = [words, act, name](Session& session) { return run(session, *words, act, name); };
    });
}

}

void addActionCommands(CLI::App& program, CommandBody& body) {
    for (const auto& [name, help, act] : simpleActions) {
        const auto words = std::make_shared<ActionWords>();
        words->needsYes = std::string_view(name) == "delete";
        auto* command = addAction(program, body, name, help, act, words);
        if (words->needsYes) command->add_flag("--yes", words->isConfirmed, tr("Delete without asking"));
    }
    auto moveWords = std::make_shared<ActionWords>();
    addAction(program, body, "move", "Move messages to a mailbox of their account", move, moveWords)
        ->add_option("--to", moveWords->text, tr("Path of the mailbox"))
        ->required();
    addLabelAction(program, body, "label", "Put a label on messages", addLabel);
    addLabelAction(program, body, "unlabel", "Take a label from messages", removeLabel);
    auto* undoing = program.add_subcommand("undo", tr("Take back the last action"));
    undoing->callback([&body] { body = undo; });
}

}
