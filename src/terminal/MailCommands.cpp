#include "terminal/MailCommands.h"

#include "base/Localisation.h"
#include "base/Text.h"
#include "terminal/LocalTime.h"
#include "terminal/MessageJSON.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>

namespace velmo {

namespace {

using nlohmann::json;

struct ListWords {
    std::optional<std::string> mailbox;
    std::optional<std::string> account;
    bool onlyUnread = false;
    std::size_t limit = 50;
};

// --- sync -----------------------------------------------------------------------------------------------------------

std::string progressText(const MailAccount& account, const PassProgress& progress) {
    return tr("{}: {} ({} of {})", printable(account.email), printable(progress.mailbox), progress.position,
              progress.count);
}

std::string resultText(const MailAccount& account, const PassResult& result) {
    return tr("{}: {}, {}", printable(account.email), trCount("{} mailbox", "{} mailboxes", result.mailboxes),
              trCount("{} new message", "{} new messages", result.newMessages));
}

/// A failing account does not keep the others from their pass.
Async<void> sync(Session& session, const std::optional<std::string>& email) {
    if (session.app.accounts().accounts->empty())
        throw CommandError(tr("There is no account yet. Add one with: velmo accounts add --email YOU@…"));
    auto document = json::array();
    std::string failure;
    for (const auto& account : chosenAccounts(session, email)) {
        json entry{{"account", account.email}};
        try {
            auto show = [&session, &account](const PassProgress& progress) {
                session.console.progress(progressText(account, progress));
            };
            const PassResult result = co_await session.app.sync(account, show);
            entry["mailboxes"] = result.mailboxes;
            entry["newMessages"] = result.newMessages;
            entry["vanished"] = result.vanished;
            if (!session.isJSON()) session.console.line(resultText(account, result));
        } catch (const UserError& error) {
            entry["error"] = error.sentence();
            failure += (failure.empty() ? "" : "\n") + printable(account.email + ": " + error.sentence());
        }
        document.push_back(std::move(entry));
    }
    session.tellNotices();
    if (session.isJSON()) session.print(document);
    if (!failure.empty()) throw CommandError(failure);
}

// --- mailboxes ------------------------------------------------------------------------------------------------------

Async<void> mailboxes(Session& session, const std::optional<std::string>& email) {
    co_await session.app.openMail();
    auto document = json::array();
    std::vector<std::vector<std::string>> rows{{tr("Account"), tr("Mailbox"), tr("Role"), tr("Unread"), tr("Total")}};
    for (const auto& account : chosenAccounts(session, email)) {
        for (const auto& mailbox : session.app.mail().mailboxes.of(account.id)) {
            document.push_back({{"account", account.email},
                                {"path", mailbox.path},
                                {"name", mailbox.name},
                                {"role", std::string(rawText(mailbox.role()))},
                                {"unread", mailbox.unreadCount},
                                {"total", mailbox.totalCount}});
            rows.push_back({printable(account.email), printable(mailbox.path), std::string(rawText(mailbox.role())),
                            std::to_string(mailbox.unreadCount), std::to_string(mailbox.totalCount)});
        }
    }
    if (session.isJSON()) {
        session.print(document);
        co_return;
    }
    if (rows.size() == 1) {
        session.console.note(tr("No mailbox is here yet. Bring in the mail with: velmo sync"));
        co_return;
    }
    for (const auto& line : tableLines(rows)) session.console.line(line);
}

// --- list -----------------------------------------------------------------------------------------------------------

/// The mailboxes that `word` names, as a role or as a path.
std::vector<MailboxKey> mailboxesNamed(Session& session, const std::vector<MailAccount>& accounts,
                                       const std::string& word) {
    const auto role = mailboxRoleFrom(text::lowered(word));
    const std::string path = canonicalMailboxPath(word);
    std::vector<MailboxKey> byRole, byPath;
    for (const auto& account : accounts) {
        for (const auto& mailbox : session.app.mail().mailboxes.of(account.id)) {
            if (role && mailbox.role() == *role) byRole.push_back(mailbox.key());
            if (mailbox.path == path) byPath.push_back(mailbox.key());
        }
    }
    return byRole.empty() ? byPath : byRole;
}

std::string senderOf(const MessageRecord& message) {
    const std::string& name = message.fromName.empty() ? message.fromEmail : message.fromName;
    return printable(text::repairedUTF8(name));
}

std::string rowText(const Session& session, const MessageRecord& message, std::size_t idColumns, Date now) {
    const Console& console = session.console;
    const auto style = message.isSeen ? Console::Style::plain : Console::Style::bold;
    std::string marks;
    marks += message.isSeen ? " " : "●";
    marks += message.isFlagged ? "★" : " ";
    marks += message.isAnswered ? "↩" : " ";
    marks += message.hasInvite ? "▦" : message.hasAttachments ? "+" : " ";
    const std::string id = std::to_string(message.id);
    const std::string front = std::string(idColumns - id.size(), ' ') + id;
    const std::size_t used = idColumns + 4 + 10 + 22 + 8;
    const std::size_t left = std::max<std::size_t>(console.width(), used + 20) - used;
    const std::string subject = printable(message.subject.empty() ? tr("(no subject)") : message.subject);
    const std::string shown = columns(subject) + 4 < left ? subject : fitted(subject, left);
    std::string line =
        fmt::format("{}  {}  {}  {}  {}", console.styled(Console::Style::dim, front),
                    console.styled(Console::Style::yellow, marks), fitted(shortDate(message.date, now), 10),
                    console.styled(style, fitted(senderOf(message), 22)), console.styled(style, shown));
    if (columns(shown) + 4 < left && !message.snippet.empty()) {
        const std::size_t rest = left - columns(shown) - 2;
        const std::string snippet = printable(message.snippet);
        line += "  " + console.styled(Console::Style::dim, fitted(snippet, std::min(rest, columns(snippet))));
    }
    return line;
}

void printRows(Session& session, const std::vector<MessageRecord>& messages) {
    std::size_t idColumns = 1;
    for (const auto& message : messages) idColumns = std::max(idColumns, std::to_string(message.id).size());
    const Date now = session.app.clock().now();
    for (const auto& message : messages) session.console.line(rowText(session, message, idColumns, now));
}

void hint(Session& session, bool isEmpty) {
    if (session.app.isShowingSamples()) {
        session.console.note(tr("\nThis is sample mail. Read a message with: velmo read ID\n"
                                "Add your own account with: velmo accounts add --email YOU@…"));
    } else if (isEmpty) {
        session.console.note(tr("No message is here. Bring in the mail with: velmo sync"));
    }
}

Async<void> list(Session& session, const ListWords& words) {
    co_await session.app.openMail();
    const auto accounts = chosenAccounts(session, words.account);
    auto keys = mailboxesNamed(session, accounts, words.mailbox.value_or("inbox"));
    if (keys.empty() && words.mailbox)
        throw CommandError(tr("There is no mailbox {}.", printable(text::repairedUTF8(*words.mailbox))));
    MessageListQuery query(std::move(keys), words.limit);
    if (words.onlyUnread) query.show = MessageListQuery::Show::unread;
    const auto messages = session.app.mail().messages.page(query);
    if (!session.isJSON()) {
        printRows(session, messages);
        hint(session, messages.empty());
        co_return;
    }
    std::map<UUID, std::string> addresses;
    for (const auto& account : accounts) addresses[account.id] = account.email;
    auto document = json::array();
    for (const auto& message : messages) document.push_back(jsonOf(message, addresses[message.accountID]));
    session.print(document);
}

}

void addMailCommands(CLI::App& program, CommandBody& body) {
    auto syncAccount = std::make_shared<std::optional<std::string>>();
    auto* syncing = program.add_subcommand("sync", tr("Bring every mailbox up to date, once"));
    syncing->add_option("--account", *syncAccount, tr("Only this account"));
    syncing->callback(
        [syncAccount, &body] { body = [syncAccount](Session& session) { return sync(session, *syncAccount); }; });

    auto mailboxAccount = std::make_shared<std::optional<std::string>>();
    auto* mailboxing = program.add_subcommand("mailboxes", tr("Show the mailboxes with their counts"));
    mailboxing->add_option("--account", *mailboxAccount, tr("Only this account"));
    mailboxing->callback([mailboxAccount, &body] {
        body = [mailboxAccount](Session& session) { return mailboxes(session, *mailboxAccount); };
    });

    auto words = std::make_shared<ListWords>();
    auto* listing = program.add_subcommand("list", tr("Show messages, newest first"));
    listing->add_option("--mailbox", words->mailbox,
                        tr("A role (inbox, sent, junk…) or a path; the inboxes by default"));
    listing->add_option("--account", words->account, tr("Only this account"));
    listing->add_flag("--unread", words->onlyUnread, tr("Only unread messages"));
    listing->add_option("--limit", words->limit, tr("How many at most"))
        ->check(CLI::Range(std::size_t{1}, std::size_t{100'000}))
        ->capture_default_str();
    listing->callback([words, &body] { body = [words](Session& session) { return list(session, *words); }; });
}

}
