#include "terminal/ActionCommands.h"

#include "base/Localisation.h"
#include "base/Text.h"
#include "terminal/MessageRows.h"
#include "terminal/OutboxCommands.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>

namespace velmo {

namespace {

struct ActionWords {
    std::vector<std::int64_t> ids;
    std::string text; ///< path or key
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
    if (canUndo) line += " " + tr("(for a few seconds you can take it back with: velmo undo)");
    session.console.line(printable(line));
    if (session.app.isShowingSamples())
        session.console.note(tr("This is sample mail: the next command finds it as it was."));
}

/// In a process of its own an action is carried out before the process ends; in the running application it can be
/// undone for a while.
Async<void> run(Session& session, const ActionWords& words, Act act, const char* name) {
    co_await session.app.openMail();
    const Records records = messagesNumbered(session, words.ids);
    const auto before = bannerID(session);
    const Taken taken = act(session, records, words);
    const std::string done = newBannerText(session, before);
    if (taken.empty()) throw CommandError(whyNone(session, records));
    const bool canUndo = !done.empty() && session.place == Session::Place::application;
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
