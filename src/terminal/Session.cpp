#include "terminal/Session.h"

#include "base/Localisation.h"
#include "base/Text.h"
#include "platform/CaseFolding.h"

#include <nlohmann/json.hpp>

namespace velmo {

void Session::print(const nlohmann::json& document) {
    console.line(textOf(document));
}

Async<std::optional<bool>> Session::confirmed(std::string question) {
    if (!console.inputIsTerminal()) co_return std::nullopt;
    console.note(question + " " + tr("[y/N]"));
    const auto answer = co_await console.readLineFromInput();
    if (!answer) co_return std::nullopt;
    co_return text::startsWithIgnoringCase(text::trimmed(*answer), "y");
}

void Session::tellTroubles(const std::exception_ptr& failure) {
    if (!app.isOpen()) return;
    const std::string told = failure && !isCancellation(failure) ? sentenceOf(failure) : std::string();
    for (const auto& trouble : app.store().troubles().takeUntold())
        if (told.empty() || !trouble.text.contains(told)) console.note(printable(trouble.text));
}

void Session::tellNotices() {
    if (const auto notice = app.keychain().notice()) console.note(*notice);
}

std::string textOf(const nlohmann::json& document) {
    return document.dump(2, ' ', false, nlohmann::json::error_handler_t::replace);
}

MailAccount accountNamed(Session& session, const std::string& email) {
    for (const auto& account : session.app.accounts().accounts.get())
        if (foldedCase(account.email) == foldedCase(email)) return account;
    throw CommandError(tr("There is no account {}.", printable(text::repairedUTF8(email))));
}

std::vector<MailAccount> chosenAccounts(Session& session, const std::optional<std::string>& email) {
    if (email && !session.app.isShowingSamples()) return {accountNamed(session, *email)};
    return session.app.mailAccounts();
}

}
