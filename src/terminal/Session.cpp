#include "terminal/Session.h"

#include "base/Localisation.h"
#include "base/Text.h"
#include "platform/CaseFolding.h"
#include "terminal/TroubleLines.h"

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
    velmo::tellTroubles(*this, told);
}

void Session::tellNotices() {
    if (const auto notice = app.keychain().notice()) console.note(*notice);
}

std::string textOf(const nlohmann::json& document, JSONForm form) {
    const int indent = form == JSONForm::lines ? 2 : -1;
    const std::string text = document.dump(indent, ' ', false, nlohmann::json::error_handler_t::replace);
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size();) {
        const std::size_t start = i;
        const char32_t c = text::nextCodePoint(text, i);
        if (isHarmless(c) || c == '\n')
            out.append(text, start, i - start);
        else
            out += fmt::format("\\u{:04x}", static_cast<std::uint32_t>(c));
    }
    return out;
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
