#include "terminal/TroubleLines.h"

#include "base/Localisation.h"
#include "base/Text.h"
#include "platform/SHA256.h"
#include "terminal/DateWords.h"
#include "terminal/InputText.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace velmo {

namespace {

/// Stays the same while others come and go.
std::string numberOf(const Trouble& trouble) {
    constexpr std::size_t digits = 6;
    return sha256Hex(trouble.key).substr(0, digits);
}

std::string addressOf(Session& session, const Trouble& trouble) {
    for (const auto& account : session.app.accounts().accounts.get())
        if (account.id == trouble.accountID) return account.email;
    return {};
}

std::string lineOf(Session& session, const Trouble& trouble) {
    const auto address = addressOf(session, trouble);
    return printable(fmt::format("{}{}: {}", shortDate(trouble.at, session.app.clock().now()),
                                 address.empty() ? "" : ", " + address, text::repairedUTF8(trouble.text)));
}

}

void tellTroubles(Session& session, const std::string& told) {
    auto untold = session.app.store().troubles().takeUntold();
    std::erase_if(untold, [&](const Trouble& trouble) { return !told.empty() && trouble.text.contains(told); });
    for (const auto& trouble : untold) session.console.note(lineOf(session, trouble));
    if (!untold.empty()) session.console.note(tr("What failed is listed by velmo status until it is dealt with."));
}

std::vector<std::string> troubleLines(Session& session) {
    std::vector<std::string> lines;
    const auto standing = session.app.store().troubles().all.get();
    if (standing.empty()) return lines;
    lines.push_back(trCount("{} thing failed:", "{} things failed:", standing.size()));
    for (const auto& trouble : standing)
        lines.push_back(fmt::format("  {}  {}", numberOf(trouble), lineOf(session, trouble)));
    lines.push_back(tr("Dismiss what is dealt with: velmo status --dismiss NUMBER (or all)"));
    return lines;
}

nlohmann::json jsonOfTroubles(Session& session) {
    auto list = nlohmann::json::array();
    for (const auto& trouble : session.app.store().troubles().all.get()) {
        const auto address = addressOf(session, trouble);
        list.push_back({{"key", trouble.key},
                        {"number", numberOf(trouble)},
                        {"account", address.empty() ? nlohmann::json(nullptr) : nlohmann::json(address)},
                        {"at", iso8601(trouble.at)},
                        {"text", trouble.text}});
    }
    return list;
}

void dismissTrouble(Session& session, const std::string& number) {
    Troubles& troubles = session.app.store().troubles();
    const auto standing = troubles.all.get();
    std::size_t count = 0;
    for (const auto& trouble : standing) {
        if (number != "all" && number != numberOf(trouble)) continue;
        troubles.settle(trouble.key);
        ++count;
    }
    if (count == 0)
        throw CommandError(
            tr("Nothing that failed has the number {}. The numbers are in velmo status.", shownWord(number)));
}

}
