#include "terminal/ActionCommands.h"

#include "base/Localisation.h"
#include "base/Text.h"
#include "terminal/MessageRows.h"

#include <CLI/CLI.hpp>
#include <array>
#include <nlohmann/json.hpp>

namespace velmo {

namespace {

struct ActionWords {
    std::vector<std::int64_t> ids;
    std::string text; ///< path or key
};

using Records = std::vector<MessageRecord>;

/// Does it to messages that are there.
using Act = void (*)(Session&, const Records&, const ActionWords&);

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
           [](Session& s, const Records& r, const ActionWords&) { actionsOf(s).archive(r); }},
    Action{"junk", "Move messages to the junk mailbox; from there, back to the inbox",
           [](Session& s, const Records& r, const ActionWords&) { actionsOf(s).moveToJunk(r); }},
    Action{"trash", "Move messages to the trash; from there, delete them for good",
           [](Session& s, const Records& r, const ActionWords&) { actionsOf(s).moveToTrash(r); }},
    Action{"inbox", "Move messages to the inbox",
           [](Session& s, const Records& r, const ActionWords&) { actionsOf(s).moveToInbox(r); }},
    Action{"delete", "Delete messages for good",
           [](Session& s, const Records& r, const ActionWords&) {
               actionsOf(s).deleteForever(
                   r, r.size() == 1 ? tr("Deleted") : trCount("Deleted {} message", "Deleted {} messages", r.size()));
           }},
    Action{"flag", "Flag messages",
           [](Session& s, const Records& r, const ActionWords&) {
               actionsOf(s).setFlagged(r, MessageActions::FlagState::flagged);
           }},
    Action{"unflag", "Take the flag from messages",
           [](Session& s, const Records& r, const ActionWords&) {
               actionsOf(s).setFlagged(r, MessageActions::FlagState::unflagged);
           }},
    Action{"seen", "Mark messages as read",
           [](Session& s, const Records& r, const ActionWords&) {
               actionsOf(s).setRead(r, MessageActions::ReadState::read);
           }},
    Action{"unseen", "Mark messages as unread",
           [](Session& s, const Records& r, const ActionWords&) {
               actionsOf(s).setRead(r, MessageActions::ReadState::unread);
           }},
};

void move(Session& session, const Records& records, const ActionWords& words) {
    const std::string path = canonicalMailboxPath(words.text);
    for (const auto& record : records)
        if (!session.app.mail().mailboxes.find(MailboxKey{record.accountID, path}))
            throw CommandError(tr("There is no mailbox {}.", printable(text::repairedUTF8(words.text))));
    actionsOf(session).move(records, path);
}

void setLabel(Session& session, const Records& records, const ActionWords& words, LabelChange change) {
    if (!session.app.mail().labels.find(words.text))
        throw CommandError(tr("There is no label {}.", printable(text::repairedUTF8(words.text))));
    actionsOf(session).label(records, words.text, change);
}

void addLabel(Session& session, const Records& records, const ActionWords& words) {
    setLabel(session, records, words, LabelChange::add);
}

void removeLabel(Session& session, const Records& records, const ActionWords& words) {
    setLabel(session, records, words, LabelChange::remove);
}

/// The words of the message line, as a failure when they tell of one.
std::string bannerText(Session& session) {
    const auto& banner = session.app.store().status().banner.get();
    if (!banner) return {};
    if (banner->isError) throw CommandError(banner->text);
    return banner->text;
}

/// In a process of its own an action is carried out before the process ends; in the running application it can be
/// undone for a while.
Async<void> run(Session& session, const ActionWords& words, Act act, const char* name) {
    co_await session.app.openMail();
    const Records records = messagesNumbered(session, words.ids);
    // What an earlier action left is not the answer to this one.
    session.app.store().status().banner = std::optional<Banner>();
    act(session, records, words);
    std::string done = bannerText(session);
    const bool canUndo = !done.empty() && session.place == Session::Place::application;
    if (session.place == Session::Place::ownProcess) {
        actionsOf(session).commitPendingAction();
        co_await actionsOf(session).finished();
        bannerText(session);
    }
    session.tellNotices();
    if (session.isJSON()) {
        session.print({{"action", name}, {"messages", words.ids}, {"canUndo", canUndo}});
        co_return;
    }
    if (done.empty()) done = tr("Done");
    if (canUndo) done += " " + tr("(for a few seconds you can take it back with: velmo undo)");
    session.console.line(printable(done));
}

Async<void> undo(Session& session) {
    co_await session.app.openMail();
    const auto& banner = session.app.store().status().banner.get();
    if (!banner || !banner->canUndo) throw CommandError(tr("There is nothing to undo."));
    const std::string what = banner->text;
    actionsOf(session).undo();
    if (session.isJSON())
        session.print({{"undone", what}});
    else
        session.console.line(tr("Undone: {}", printable(what)));
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
    for (const auto& [name, help, act] : simpleActions)
        addAction(program, body, name, help, act, std::make_shared<ActionWords>());
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
