#include "terminal/ListCommands.h"

#include "base/Localisation.h"
#include "base/Text.h"
#include "terminal/MailboxWords.h"
#include "terminal/MessageNumbers.h"
#include "terminal/MessageRows.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <nlohmann/json.hpp>

namespace velmo {

namespace {

using nlohmann::json;

struct ListWords {
    std::optional<std::string> mailbox;
    std::optional<std::string> account;
    std::optional<std::string> label;
    std::optional<InboxFocus> focus;
    std::string search;
    std::optional<std::int64_t> thread;
    std::optional<MessagePlace> page;
    bool onlyUnread = false;
    std::size_t limit = 50;
};

// --- mailboxes ------------------------------------------------------------------------------------------------------

Async<void> mailboxes(Session& session, const std::optional<std::string>& email) {
    co_await session.app.openMail();
    auto document = json::array();
    std::vector<std::vector<std::string>> rows{{tr("Account"), tr("Mailbox"), tr("Role"), tr("Unread"), tr("Total")}};
    for (const auto& account : chosenAccounts(session, email)) {
        for (const auto& mailbox : session.app.mail().mailboxes.of(account.id)) {
            document.push_back({{"account", account.email},
                                {"path", shownPath(mailbox.path)},
                                {"name", mailbox.name},
                                {"role", std::string(rawText(mailbox.role()))},
                                {"unread", mailbox.unreadCount},
                                {"total", mailbox.totalCount}});
            rows.push_back({printable(account.email), printable(shownPath(mailbox.path)),
                            std::string(rawText(mailbox.role())), std::to_string(mailbox.unreadCount),
                            std::to_string(mailbox.totalCount)});
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

/// The mailbox that `word` means in each account that has it.
std::vector<MailboxRecord> mailboxesMeant(Session& session, const std::vector<MailAccount>& accounts,
                                          const std::string& word) {
    std::vector<MailboxRecord> meant;
    for (const auto& account : accounts)
        if (auto mailbox = mailboxMeant(session, account.id, word)) meant.push_back(*std::move(mailbox));
    return meant;
}

/// Every mailbox but those of spam and trash, for a search.
std::vector<MailboxRecord> searchedMailboxes(Session& session, const std::vector<MailAccount>& accounts) {
    std::vector<MailboxRecord> found;
    for (const auto& account : accounts)
        for (auto& mailbox : session.app.mail().mailboxes.of(account.id))
            if (mailbox.role() != MailboxRole::junk && mailbox.role() != MailboxRole::trash)
                found.push_back(std::move(mailbox));
    return found;
}

MessageListSource labelSource(Session& session, const ListWords& words) {
    const std::string& key = *words.label;
    if (!session.app.mail().labels.find(key))
        throw CommandError(tr("There is no label {}.", printable(text::repairedUTF8(key))));
    if (!words.account) return session.app.store().lists().resolve(UnifiedMailbox::label(key));
    return session.app.store().lists().label(key, accountNamed(session, *words.account).id).value();
}

/// A view of what these mailboxes are, where they are all the same.
UnifiedMailbox viewOf(const std::vector<MailboxRecord>& mailboxes, const std::string& word) {
    const auto role = mailboxes.empty() ? MailboxRole::inbox : mailboxes.front().role();
    const bool areAlike = std::ranges::all_of(mailboxes, [&](const auto& mailbox) { return mailbox.role() == role; });
    return areAlike && role != MailboxRole::other ? UnifiedMailbox::mailbox(role) : UnifiedMailbox::folder(word);
}

MessageListSource sourceOf(Session& session, const ListWords& words) {
    if (words.label) return labelSource(session, words);
    const auto accounts = chosenAccounts(session, words.account);
    const std::string word = words.mailbox.value_or("inbox");
    UnifiedScope scope;
    scope.mailboxes = mailboxesMeant(session, accounts, word);
    if (scope.mailboxes.empty() && words.mailbox) throw noMailbox(*words.mailbox);
    if (scope.mailboxes.size() == 1) return scope.mailboxes.front();
    scope.view = viewOf(scope.mailboxes, word);
    return scope;
}

/// As many rows as were asked for, or all there are.
std::vector<MessageRecord> rowsOf(Session& session, MessagePageRequest request) {
    std::vector<MessageRecord> rows;
    const std::size_t wanted = request.limit;
    for (;;) {
        request.limit = wanted - rows.size();
        auto page = session.app.store().lists().page(request);
        std::ranges::move(page.records, std::back_inserter(rows));
        if (!page.next || rows.size() >= wanted) return rows;
        request.after = page.next;
    }
}

/// What stands in place of the rows.
std::string emptyText(const MessagePageRequest& request) {
    if (request.after) return tr("There are no more messages.");
    if (!request.search.empty()) return tr("Nothing was found.");
    const bool isWhole = request.focus == InboxFocus::all && !request.showsUnreadOnly;
    const bool isImportant = request.focus == InboxFocus::important && hasFocus(request.source);
    const auto words = isImportant ? emptyWords(UnifiedMailbox::important()) : emptyWords(request.source);
    return isWhole && !words.text.empty() ? words.title + "\n" + words.text : words.title;
}

bool hasMailboxes(Session& session, const std::optional<std::string>& email) {
    return std::ranges::any_of(chosenAccounts(session, email), [&](const auto& account) {
        return !session.app.mail().mailboxes.of(account.id).empty();
    });
}

void show(Session& session, const ListWords& words, const MessagePageRequest& request) {
    const auto rows = rowsOf(session, request);
    printRows(session, rows, showsRecipients(request.source) ? RowNames::recipients : RowNames::senders);
    if (session.isJSON()) return;
    if (rows.empty())
        session.console.note(hasMailboxes(session, words.account)
                                 ? emptyText(request)
                                 : tr("No message is here. Bring in the mail with: velmo sync"));
    if (session.app.isShowingSamples())
        session.console.note(tr("\nThis is sample mail. Read a message with: velmo read ID\n"
                                "Add your own account with: velmo accounts add --email YOU@…"));
    if (rows.size() == words.limit)
        session.console.note(tr("More with: --page {}", pageToken(MessagePlace::of(rows.back()))));
}

Async<void> list(Session& session, const ListWords& words) {
    co_await session.app.openMail();
    if (words.thread) {
        const std::vector<std::int64_t> ids{*words.thread};
        const MessageRecord of = messagesNumbered(session, ids).front();
        printRows(session, session.app.store().lists().thread(of.accountID, of.threadKey));
        co_return;
    }
    MessagePageRequest request(sourceOf(session, words), words.limit);
    request.search = words.search;
    request.focus = words.focus.value_or(InboxFocus::all);
    request.showsUnreadOnly = words.onlyUnread;
    request.after = words.page;
    show(session, words, request);
}

Async<void> search(Session& session, const ListWords& words) {
    co_await session.app.openMail();
    UnifiedScope scope;
    scope.mailboxes = searchedMailboxes(session, chosenAccounts(session, words.account));
    scope.view = UnifiedMailbox::folder("");
    MessagePageRequest request(std::move(scope), words.limit);
    request.search = words.search;
    request.after = words.page;
    show(session, words, request);
}

// --- labels ---------------------------------------------------------------------------------------------------------

Async<void> listLabels(Session& session) {
    co_await session.app.openMail();
    auto document = json::array();
    std::vector<std::vector<std::string>> rows{{tr("Label"), tr("Name")}};
    for (const auto& label : session.app.mail().labels.all()) {
        document.push_back({{"key", label.key}, {"name", label.name}});
        rows.push_back({printable(label.key), printable(label.name)});
    }
    if (session.isJSON()) {
        session.print(document);
        co_return;
    }
    for (const auto& line : tableLines(rows)) session.console.line(line);
}

// --- words ----------------------------------------------------------------------------------------------------------

void addPaging(CLI::App& command, const std::shared_ptr<ListWords>& words) {
    command.add_option("--account", words->account, tr("Only this account"));
    command.add_option("--limit", words->limit, tr("How many at most"))
        ->check(CLI::Range(std::size_t{1}, std::size_t{100'000}))
        ->capture_default_str();
    command
        .add_option_function<std::string>(
            "--page", [words](const std::string& token) { words->page = placeFrom(token); },
            tr("Go on behind the row with this token"))
        ->check([](const std::string& token) { return placeFrom(token) ? std::string{} : tr("is no page token"); });
}

void addFocus(CLI::App& command, const std::shared_ptr<ListWords>& words) {
    const std::vector<std::string> names{"important", "other", "all"};
    command
        .add_option_function<std::string>(
            "--focus", [words](const std::string& word) { words->focus = inboxFocusFrom(word); },
            tr("A part of the inbox: important, other or all"))
        ->check(CLI::IsMember(names));
}

void addList(CLI::App& program, CommandBody& body) {
    auto words = std::make_shared<ListWords>();
    auto* listing = program.add_subcommand("list", tr("Show messages, newest first"));
    listing->add_option("--mailbox", words->mailbox, tr(mailboxWordHelp));
    listing->add_option("--label", words->label, tr("The messages with this label, by its key"))->excludes("--mailbox");
    listing->add_option("--search", words->search, tr("Only what these words are found in"));
    listing->add_option("--thread", words->thread, tr("The conversation of this message"))->check(messageNumberTrouble);
    listing->add_flag("--unread", words->onlyUnread, tr("Only unread messages"));
    addFocus(*listing, words);
    addPaging(*listing, words);
    listing->callback([words, &body] { body = [words](Session& session) { return list(session, *words); }; });
}

void addDrafts(CLI::App& program, CommandBody& body) {
    auto words = std::make_shared<ListWords>();
    words->mailbox = std::string(rawText(MailboxRole::drafts));
    auto* drafts = program.add_subcommand("drafts", tr("Show the drafts of all accounts, newest first"));
    addPaging(*drafts, words);
    drafts->callback([words, &body] { body = [words](Session& session) { return list(session, *words); }; });
}

void addSearch(CLI::App& program, CommandBody& body) {
    auto words = std::make_shared<ListWords>();
    auto* searching = program.add_subcommand("search", tr("Find messages by words in them, newest first"));
    searching->add_option("QUERY", words->search, tr("Words that all are to be found"))->required();
    addPaging(*searching, words);
    searching->callback([words, &body] { body = [words](Session& session) { return search(session, *words); }; });
}

}

void addListCommands(CLI::App& program, CommandBody& body) {
    auto account = std::make_shared<std::optional<std::string>>();
    auto* mailboxing = program.add_subcommand("mailboxes", tr("Show the mailboxes with their counts"));
    mailboxing->add_option("--account", *account, tr("Only this account"));
    mailboxing->callback(
        [account, &body] { body = [account](Session& session) { return mailboxes(session, *account); }; });
    addList(program, body);
    addDrafts(program, body);
    addSearch(program, body);
    auto* labelling = program.add_subcommand("labels", tr("Show the labels"));
    labelling->callback([&body] { body = listLabels; });
}

}
