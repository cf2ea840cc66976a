#include "terminal/ActionCommands.h"

#include "base/Localisation.h"
#include "base/Text.h"
#include "terminal/InputText.h"
#include "terminal/MailboxWords.h"
#include "terminal/MessageNumbers.h"
#include "terminal/MessageRows.h"
#include "terminal/OutboxCommands.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <map>
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
    std::map<std::string, Records> targets;
    for (const auto& record : records) {
        const auto mailbox = mailboxMeant(session, record.accountID, words.text);
        if (!mailbox) throw noMailbox(words.text);
        targets[mailbox->path].push_back(record);
    }
    if (targets.size() > 1)
        throw CommandError(tr("{} is another mailbox in each account. Move the messages of one account at a time.",
                              shownWord(words.text)));
    return actionsOf(session).move(records, targets.begin()->first);
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

// --- What is told ---------------------------------------------------------------------------------------------------

/// The seconds for which an action can be taken back.
constexpr int timeToUndo = 5;

/// How long a command waits for a server to answer.
constexpr Duration patience{3'000};
constexpr Duration look{10};

/// How far an action has come when its command ends.
enum class Progress {
    done,    ///< also on the server, where it concerns one
    pending, ///< it can be taken back, and is carried out after that
    waiting  ///< the server has not answered yet
};

std::string wordOf(Progress progress) {
    switch (progress) {
    case Progress::pending: return "pending";
    case Progress::waiting: return "waiting";
    case Progress::done: break;
    }
    return "done";
}

/// What will become of messages, from the title that tells of it as done.
std::string futureOf(const std::string& title, const std::string& target, std::size_t count) {
    if (!target.empty())
        return count == 1 ? tr("The message goes to {}", target) : tr("{} messages go to {}", count, target);
    if (title == trCount("Archived", "Archived {} messages", count))
        return trCount("The message goes to the archive", "{} messages go to the archive", count);
    if (title == trCount("Moved to Junk", "Moved {} messages to Junk", count))
        return trCount("The message goes to Junk", "{} messages go to Junk", count);
    if (title == trCount("Moved to Trash", "Moved {} messages to Trash", count))
        return trCount("The message goes to the trash", "{} messages go to the trash", count);
    if (title == trCount("Deleted", "Deleted {} messages", count))
        return trCount("The message is deleted for good", "{} messages are deleted for good", count);
    return trCount("The message goes to the inbox", "{} messages go to the inbox", count);
}

/// Why the servers of these messages will hardly take anything now; empty when nothing is known against it.
std::string connectionTrouble(Session& session, const Records& records) {
    std::string trouble;
    std::set<UUID> seen;
    for (const auto& record : records) {
        const auto status = session.app.store().status().of(record.accountID);
        if (!seen.insert(record.accountID).second || status.kind != SyncStatus::Kind::failed) continue;
        trouble += (trouble.empty() ? "" : " ") + status.text;
    }
    return trouble;
}

/// An action and how it went.
struct Report {
    std::string title;  ///< as the message line has it; empty for flags and labels
    std::string target; ///< the mailbox that the person named, where they named one
    Taken taken;
    Progress progress = Progress::done;
    std::string connection; ///< why servers will hardly take anything now
    std::map<std::int64_t, std::int64_t> renumbered;
};

std::string lineOf(const Report& report) {
    switch (report.progress) {
    case Progress::pending:
        return tr("{} in {} seconds. Until then take it back with: velmo undo",
                  futureOf(report.title, report.target, report.taken.size()), timeToUndo);
    case Progress::waiting:
        return tr("Done here. The server has not answered yet; if it refuses, the next command says so.");
    case Progress::done: break;
    }
    return report.title.empty() ? tr("Done") : report.title;
}

void tell(Session& session, const Report& report) {
    session.console.line(printable(lineOf(report)));
    for (const auto& [before, now] : report.renumbered)
        session.console.line(tr("Message {} has the number {} now.", before, now));
    if (!report.connection.empty() && report.progress != Progress::done)
        session.console.note(printable(tr("The last check of the account failed, so this may come to nothing; velmo "
                                          "status tells. {}",
                                          report.connection)));
    if (session.app.isShowingSamples())
        session.console.note(tr("This is sample mail: the next command finds it as it was."));
}

nlohmann::json documentOf(const Report& report, const ActionWords& words, const char* name) {
    auto messages = words.ids;
    std::erase_if(messages, [&](auto id) { return !report.taken.contains(id); });
    auto renumbered = nlohmann::json::array();
    for (const auto& [before, now] : report.renumbered) renumbered.push_back({{"from", before}, {"to", now}});
    return {{"action", name},
            {"messages", std::move(messages)},
            {"canUndo", report.progress == Progress::pending},
            {"state", wordOf(report.progress)},
            {"renumbered", std::move(renumbered)}};
}

// --- Run ------------------------------------------------------------------------------------------------------------

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

/// Where messages are that an action has moved. One without an identifier can't be told from others.
std::map<std::int64_t, std::int64_t> renumbered(Session& session, const Records& records, const Taken& taken) {
    std::map<std::int64_t, std::int64_t> found;
    for (const auto& record : records) {
        if (!taken.contains(record.id) || !record.messageID || session.app.mail().messages.find(record.id)) continue;
        std::int64_t newest = 0;
        for (const auto& copy : session.app.mail().messages.thread(record.accountID, record.threadKey))
            if (copy.messageID == record.messageID && copy.mailboxPath != record.mailboxPath)
                newest = std::max(newest, copy.id);
        if (newest > record.id) found[record.id] = newest;
    }
    return found;
}

void throwFailure(Session& session, const Taken& taken) {
    if (const auto failure = actionsOf(session).takeFailure(taken)) throw CommandError(*failure);
}

/// What a server did not answer stays noted, and is asked of it again.
Progress progressOf(Session& session, const Taken& taken) {
    return actionsOf(session).isUnconfirmed(taken) ? Progress::waiting : Progress::done;
}

/// In a process of its own an action is carried out before the process ends. In the running application what can be
/// undone waits for that, and a flag waits a while for its server.
Async<Progress> seeThrough(Session& session, const Report& report) {
    if (session.place == Session::Place::ownProcess) {
        actionsOf(session).commitPendingAction();
        co_await actionsOf(session).finished();
        throwFailure(session, report.taken);
        co_return progressOf(session, report.taken);
    }
    if (!report.title.empty()) co_return Progress::pending;
    const Instant limit = session.app.clock().instant() + patience;
    while (actionsOf(session).isUnderWay(report.taken)) {
        if (session.app.clock().instant() >= limit) break;
        co_await session.app.clock().wait(look);
    }
    throwFailure(session, report.taken);
    co_return progressOf(session, report.taken);
}

Async<void> run(Session& session, const ActionWords& words, Act act, const char* name) {
    co_await session.app.openMail();
    const Records records = messagesNumbered(session, words.ids);
    if (words.needsYes && !words.isConfirmed) co_await confirmDeletion(session, records);
    const auto before = bannerID(session);
    Report report;
    report.target = shownWord(words.text);
    report.taken = act(session, records, words);
    report.title = newBannerText(session, before);
    if (report.taken.empty()) throw CommandError(whyNone(session, records));
    report.progress = co_await seeThrough(session, report);
    report.connection = connectionTrouble(session, records);
    if (session.place == Session::Place::ownProcess) report.renumbered = renumbered(session, records, report.taken);
    session.tellNotices();
    if (session.isJSON())
        session.print(documentOf(report, words, name));
    else
        tell(session, report);
}

/// Why nothing can be taken back.
std::string whyNoUndo(Session& session) {
    if (session.place == Session::Place::application) return actionsOf(session).whyNotUndoable();
    return tr("There is nothing to undo: while Velmo-Mail does not run, a command carries out its action before it "
              "ends. Messages come back with velmo inbox or velmo move.");
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
    if (!what) throw CommandError(whyNoUndo(session));
    actionsOf(session).undo();
    if (session.isJSON())
        session.print({{"undone", *what}});
    else
        session.console.line(tr("Undone: {}", printable(*what)));
}

CLI::App* addAction(CLI::App& program, CommandBody& body, const char* name, const char* help, Act act,
                    const std::shared_ptr<ActionWords>& words) {
    auto* command = program.add_subcommand(name, tr(help));
    command->add_option("ID", words->ids, tr("Numbers of messages in a list"))->required()->check(messageNumberTrouble);
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
    for (const auto& number : all) {
        if (auto trouble = messageNumberTrouble(number); !trouble.empty()) throw CLI::ValidationError("ID", trouble);
        words.ids.push_back(*text::parseSigned64(number));
    }
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
        ->add_option("--to", moveWords->text, tr(mailboxWordHelp))
        ->required();
    addLabelAction(program, body, "label", "Put a label on messages", addLabel);
    addLabelAction(program, body, "unlabel", "Take a label from messages", removeLabel);
    auto* undoing = program.add_subcommand("undo", tr("Take back the last action"));
    undoing->callback([&body] { body = undo; });
}

}
