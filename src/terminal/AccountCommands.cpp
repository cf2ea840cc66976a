#include "terminal/AccountCommands.h"

#include "accounts/AccountDraft.h"
#include "accounts/AccountError.h"
#include "base/Localisation.h"
#include "base/Text.h"
#include "compose/WrittenMessage.h"
#include "terminal/Failure.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <nlohmann/json.hpp>

namespace velmo {

namespace {

struct AddWords {
    std::string email;
    std::optional<MailProvider> provider;
    std::string username;
    std::optional<ServerConfig> incoming;
    std::optional<ServerConfig> outgoing;
    bool passwordFromInput = false;
};

/// "HOST:PORT:tls" or "HOST:PORT:starttls"; the host may be an IPv6 address in brackets.
std::optional<ServerConfig> serverFrom(const std::string& text) {
    const auto securityColon = text.rfind(':');
    if (securityColon == std::string::npos || securityColon == 0) return std::nullopt;
    const auto portColon = text.rfind(':', securityColon - 1);
    if (portColon == std::string::npos || portColon == 0) return std::nullopt;
    const auto port = text::parseUnsigned32(text.substr(portColon + 1, securityColon - portColon - 1));
    const std::string security = text::lowered(text.substr(securityColon + 1));
    if (!port || *port == 0 || *port > 65535 || (security != "tls" && security != "starttls")) return std::nullopt;
    std::string host = text.substr(0, portColon);
    if (host.starts_with('[') && host.ends_with(']')) host = host.substr(1, host.size() - 2);
    return ServerConfig(host, static_cast<int>(*port),
                        security == "tls" ? ServerConfig::Security::tls : ServerConfig::Security::startTLS);
}

/// The servers that the person named, else those of the provider, else a guess from the address.
AccountDraft draftFrom(const AddWords& words) {
    const auto address = text::trimmedUnicode(words.email);
    const auto provider = words.provider ? words.provider : detectedProvider(address);
    AccountDraft draft(provider.value_or(MailProvider::other));
    draft.email = words.email;
    draft.username = words.username;
    if (draft.incoming.host.empty()) {
        if (const auto guessed = inferredServers(address)) {
            draft.incoming = guessed->incoming;
            draft.outgoing = guessed->outgoing;
        }
    }
    if (words.incoming) draft.incoming = *words.incoming;
    if (words.outgoing) draft.outgoing = *words.outgoing;
    return draft;
}

Async<std::string> passwordFor(Session& session, const std::string& email, bool isFromInput) {
    if (isFromInput) {
        auto line = co_await session.console.readLineFromInput();
        if (!line) throw CommandError(tr("There was no password on standard input."));
        co_return std::move(*line);
    }
    auto prompt = tr("Password for {}: ", printable(text::repairedUTF8(email)));
    auto typed = co_await session.console.askSecret(std::move(prompt));
    if (!typed) throw CommandError(tr("There is no terminal to ask for the password; use --password-stdin."));
    co_return std::move(*typed);
}

nlohmann::json jsonOf(const ServerConfig& server) {
    return {{"host", server.host}, {"port", server.port}, {"security", std::string(rawText(server.security))}};
}

nlohmann::json jsonOf(Session& session, const MailAccount& account) {
    return {{"id", account.id.text()},
            {"email", account.email},
            {"name", senderAddress(session.app.settings(), account).name.value_or("")},
            {"provider", std::string(rawText(account.provider))},
            {"username", account.username},
            {"incoming", jsonOf(account.incoming)},
            {"outgoing", jsonOf(account.outgoing)}};
}

std::string textOf(const ServerConfig& server) {
    return fmt::format("{}:{} {}", server.host, server.port, rawText(server.security));
}

Async<void> list(Session& session) {
    const auto accounts = session.app.accounts().accounts.get();
    if (session.isJSON()) {
        auto document = nlohmann::json::array();
        for (const auto& account : accounts) document.push_back(jsonOf(session, account));
        session.print(document);
        co_return;
    }
    if (accounts.empty())
        session.console.note(tr("There is no account yet. Add one with: velmo accounts add --email YOU@…"));
    std::vector<std::vector<std::string>> rows;
    for (const auto& account : accounts)
        rows.push_back({account.email, name(account.provider), textOf(account.incoming), textOf(account.outgoing)});
    for (const auto& row : tableLines(rows)) session.console.line(printable(row));
}

Async<void> add(Session& session, const AddWords& words) {
    AccountDraft draft = draftFrom(words);
    // Such a provider takes no password; one that is typed here must not go out to it.
    if (signInKind(draft.provider) == SignInKind::oauth) throw AccountError::signInNotConfigured(draft.provider);
    draft.password = co_await passwordFor(session, words.email, words.passwordFromInput);
    AccountStore& store = session.app.accounts();
    auto showing = store.activity.onChange([&session, &store] {
        session.console.progress(store.activity->has_value() ? store.activity.get()->label() : std::string{});
    });
    const bool added = co_await store.addAccount(std::move(draft));
    showing.disconnect();
    session.console.progress({});
    if (!added) throw CommandError(store.errorMessage->value_or(tr("The account was not added.")));
    session.tellNotices();
    const MailAccount account = store.accounts->back();
    if (session.isJSON())
        session.print(jsonOf(session, account));
    else
        session.console.line(tr("{} is added. Bring in its mail with: velmo sync", printable(account.email)));
}

struct ChangeWords {
    std::string email;
    std::optional<std::string> username;
    std::optional<ServerConfig> incoming, outgoing;
    bool passwordFromInput = false;
};

/// Shows what takes a while.
Async<void> proveAndReplace(Session& session, MailAccount account, std::optional<std::string> password) {
    session.console.progress(tr("Checking the servers…"));
    std::exception_ptr failure;
    try {
        co_await session.app.accounts().replace(account, std::move(password));
    } catch (...) {
        failure = std::current_exception();
    }
    session.console.progress({});
    if (failure) std::rethrow_exception(failure);
    session.tellNotices();
}

Async<void> setPassword(Session& session, const ChangeWords& words) {
    const MailAccount account = accountNamed(session, words.email);
    if (signInKind(account.provider) == SignInKind::oauth) throw AccountError::signInNotConfigured(account.provider);
    std::string password = co_await passwordFor(session, account.email, words.passwordFromInput);
    co_await proveAndReplace(session, account, std::move(password));
    if (session.isJSON())
        session.print(jsonOf(session, account));
    else
        session.console.line(tr("Both servers accept the new password of {}.", printable(account.email)));
}

/// With the servers and the login name that the words give; the rest stays.
Async<void> edit(Session& session, const ChangeWords& words) {
    MailAccount account = accountNamed(session, words.email);
    if (!words.username && !words.incoming && !words.outgoing)
        throw UsageError(tr("Say what is to change: --imap, --smtp or --username. For a new password: velmo accounts "
                            "password {}",
                            printable(account.email)));
    if (words.username) account.username = *words.username;
    if (words.incoming) account.incoming = *words.incoming;
    if (words.outgoing) account.outgoing = *words.outgoing;
    co_await proveAndReplace(session, account, std::nullopt);
    if (session.isJSON())
        session.print(jsonOf(session, account));
    else
        session.console.line(tr("{} is changed.", printable(account.email)));
}

struct RemoveWords {
    std::string email;
    bool isConfirmed = false;
};

/// What has not been sent would never be.
std::size_t unsentOf(Session& session, const UUID& accountID) {
    const auto& items = *session.app.outbox()->items;
    return static_cast<std::size_t>(
        std::ranges::count(items, accountID, [](const auto& item) { return item->accountID; }));
}

Async<void> confirmRemoval(Session& session, const MailAccount& account, const RemoveWords& words) {
    co_await session.app.openMail();
    co_await session.app.outbox()->loaded();
    const auto unsent = unsentOf(session, account.id);
    if (words.isConfirmed && unsent == 0) co_return;
    if (unsent > 0)
        session.console.note(tr("Messages of {} that wait in the outbox and will not be sent: {}. See them with: velmo "
                                "outbox",
                                printable(account.email), unsent));
    if (words.isConfirmed) co_return;
    const auto answer = co_await session.confirmed(
        tr("Remove {} with its mail on this machine and its password? What is on the server stays.",
           printable(account.email)));
    if (!answer) throw UsageError(tr("Nothing is removed without a yes. Say --yes."));
    if (!*answer) throw CommandError(tr("Nothing is removed."));
}

Async<void> remove(Session& session, const RemoveWords& words) {
    const MailAccount account = accountNamed(session, words.email);
    co_await confirmRemoval(session, account, words);
    co_await session.app.remove(account.id);
    session.tellNotices();
    if (session.isJSON())
        session.print({{"removed", account.email}});
    else
        session.console.line(tr("{} is removed, with its mail and its password.", printable(account.email)));
}

/// The name in front of the address, in what the account sends.
Async<void> setName(Session& session, const std::string& email, const std::string& word) {
    const MailAccount account = accountNamed(session, email);
    const std::string name(text::trimmedUnicode(printable(text::repairedUTF8(word))));
    Settings& settings = session.app.settings();
    co_await callOn(session.executors.background, [&] {
        if (name.empty())
            settings.remove(senderNameKey(account.id));
        else
            settings.setText(senderNameKey(account.id), name);
    });
    if (session.isJSON())
        session.print(jsonOf(session, account));
    else if (name.empty())
        session.console.line(tr("Messages from {} carry the address alone.", printable(account.email)));
    else
        session.console.line(tr("Messages from {} carry the name {}.", printable(account.email), name));
}

/// Takes words like "google" and "other".
void addProviderOption(CLI::App& command, std::shared_ptr<AddWords> words) {
    std::vector<std::string> names;
    for (const auto provider : allMailProviders) names.emplace_back(rawText(provider));
    command
        .add_option_function<std::string>(
            "--provider", [words](const std::string& word) { words->provider = mailProviderFrom(word); },
            tr("Who runs the mailbox; worked out from the address by default"))
        ->check(CLI::IsMember(names));
}

void addServerOption(CLI::App& command, const char* option, std::string what, std::optional<ServerConfig>& server) {
    command
        .add_option_function<std::string>(
            option, [&server](const std::string& word) { server = serverFrom(word); }, std::move(what))
        ->type_name("HOST:PORT:tls|starttls")
        ->check([](const std::string& word) {
            return serverFrom(word) ? std::string{} : tr("must be HOST:PORT:tls or HOST:PORT:starttls");
        });
}

}

void addAccountCommands(CLI::App& program, CommandBody& body) {
    auto* accounts = program.add_subcommand("accounts", tr("List, add, change and remove mail accounts"));
    accounts->require_subcommand(0, 1);
    accounts->callback([accounts, &body] {
        if (accounts->get_subcommands().empty()) body = list;
    });

    auto words = std::make_shared<AddWords>();
    auto* adding = accounts->add_subcommand("add", tr("Prove an account at its servers, and add it"));
    adding->add_option("--email", words->email, tr("Address of the account"))->required();
    addProviderOption(*adding, words);
    adding->add_option("--username", words->username, tr("Login name, where it is not the address"));
    addServerOption(*adding, "--imap", tr("Server for incoming mail"), words->incoming);
    addServerOption(*adding, "--smtp", tr("Server for outgoing mail"), words->outgoing);
    adding->add_flag("--password-stdin", words->passwordFromInput, tr("Read the password from standard input"));
    adding->callback([words, &body] { body = [words](Session& session) { return add(session, *words); }; });

    auto changed = std::make_shared<ChangeWords>();
    auto* editing = accounts->add_subcommand("edit", tr("Give an account other servers or another login name"));
    editing->add_option("EMAIL", changed->email, tr("Address of the account"))->required();
    editing->add_option("--username", changed->username, tr("Login name, where it is not the address"));
    addServerOption(*editing, "--imap", tr("Server for incoming mail"), changed->incoming);
    addServerOption(*editing, "--smtp", tr("Server for outgoing mail"), changed->outgoing);
    editing->callback([changed, &body] { body = [changed](Session& session) { return edit(session, *changed); }; });

    auto secret = std::make_shared<ChangeWords>();
    auto* replacing = accounts->add_subcommand("password", tr("Give an account its new password"));
    replacing->add_option("EMAIL", secret->email, tr("Address of the account"))->required();
    replacing->add_flag("--password-stdin", secret->passwordFromInput, tr("Read the password from standard input"));
    replacing->callback(
        [secret, &body] { body = [secret](Session& session) { return setPassword(session, *secret); }; });

    auto gone = std::make_shared<RemoveWords>();
    auto* removing = accounts->add_subcommand("remove", tr("Remove an account with its local mail"));
    removing->add_option("EMAIL", gone->email, tr("Address of the account"))->required();
    removing->add_flag("--yes", gone->isConfirmed, tr("Remove it without asking"));
    removing->callback([gone, &body] { body = [gone](Session& session) { return remove(session, *gone); }; });

    auto named = std::make_shared<std::pair<std::string, std::string>>();
    auto* naming = accounts->add_subcommand("name", tr("Set the name that stands in front of the address"));
    naming->add_option("EMAIL", named->first, tr("Address of the account"))->required();
    naming->add_option("NAME", named->second, tr("The name; an empty one removes it"))->required();
    naming->callback(
        [named, &body] { body = [named](Session& session) { return setName(session, named->first, named->second); }; });
}

}
