#include "terminal/MessageRows.h"

#include "base/Localisation.h"
#include "base/Text.h"
#include "formats/ShownAddress.h"
#include "terminal/DateWords.h"
#include "terminal/MessageJSON.h"

#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>

namespace velmo {

namespace {

std::string senderOf(const MessageRecord& message) {
    return printable(shortAddress(text::repairedUTF8(message.fromName), text::repairedUTF8(message.fromEmail)));
}

std::string recipientsOf(const MessageRecord& message) {
    std::string all;
    for (const auto* addresses : {&message.to, &message.cc}) {
        for (const auto& address : *addresses)
            all += (all.empty() ? "" : ", ") +
                   shortAddress(text::repairedUTF8(address.name.value_or("")), text::repairedUTF8(address.email));
    }
    return all.empty() ? tr("(no recipient)") : tr("To: {}", printable(all));
}

/// What is the same for all rows of a list.
struct RowForm {
    RowNames names = RowNames::senders;
    std::size_t idColumns = 1;
    std::size_t accountColumns = 0; ///< 0 where there is only one account
    std::map<UUID, std::string> addresses;
    Date now;
};

std::map<UUID, std::string> addressesOf(Session& session) {
    std::map<UUID, std::string> addresses;
    for (const auto& account : session.app.mailAccounts()) addresses[account.id] = account.email;
    return addresses;
}

RowForm formOf(Session& session, const std::vector<MessageRecord>& messages, RowNames names) {
    constexpr std::size_t mostAccountColumns = 20;
    RowForm form;
    form.names = names;
    form.addresses = addressesOf(session);
    form.now = session.app.clock().now();
    for (const auto& message : messages) form.idColumns = std::max(form.idColumns, std::to_string(message.id).size());
    if (form.addresses.size() < 2) return form;
    for (const auto& [id, address] : form.addresses)
        form.accountColumns = std::max(form.accountColumns, columns(printable(address)));
    form.accountColumns = std::min(form.accountColumns, mostAccountColumns);
    return form;
}

std::string accountText(const RowForm& form, const MessageRecord& message) {
    if (form.accountColumns == 0) return {};
    const auto found = form.addresses.find(message.accountID);
    return "  " + fitted(found == form.addresses.end() ? "" : printable(found->second), form.accountColumns);
}

std::string rowText(const Session& session, const MessageRecord& message, const RowForm& form) {
    const Console& console = session.console;
    const auto style = message.isSeen ? Console::Style::plain : Console::Style::bold;
    std::string marks;
    marks += message.isSeen ? " " : "●";
    marks += message.isFlagged ? "★" : " ";
    marks += message.isAnswered ? "↩" : " ";
    marks += message.hasInvite ? "▦" : message.hasAttachments ? "+" : " ";
    const std::string id = std::to_string(message.id);
    const std::string front = std::string(form.idColumns - id.size(), ' ') + id;
    const std::string account = accountText(form, message);
    const std::size_t used = form.idColumns + 4 + 10 + columns(account) + 22 + 8;
    const std::size_t left = std::max<std::size_t>(console.width(), used + 20) - used;
    const std::string who = form.names == RowNames::recipients ? recipientsOf(message) : senderOf(message);
    const std::string subject = printable(message.subject.empty() ? tr("(no subject)") : message.subject);
    const std::string shown = columns(subject) + 4 < left ? subject : fitted(subject, left);
    std::string line =
        fmt::format("{}  {}  {}{}  {}  {}", console.styled(Console::Style::dim, front),
                    console.styled(Console::Style::yellow, marks), fitted(shortDate(message.date, form.now), 10),
                    account, console.styled(style, fitted(who, 22)), console.styled(style, shown));
    if (columns(shown) + 4 < left && !message.snippet.empty()) {
        const std::size_t rest = left - columns(shown) - 2;
        const std::string snippet = printable(message.snippet);
        line += "  " + console.styled(Console::Style::dim, fitted(snippet, std::min(rest, columns(snippet))));
    }
    return line;
}

}

nlohmann::json jsonOfRows(Session& session, const std::vector<MessageRecord>& messages) {
    auto addresses = addressesOf(session);
    auto document = nlohmann::json::array();
    for (const auto& message : messages) {
        document.push_back(jsonOf(message, addresses[message.accountID]));
        document.back()["page"] = pageToken(MessagePlace::of(message));
    }
    return document;
}

void printRows(Session& session, const std::vector<MessageRecord>& messages, RowNames names) {
    if (session.isJSON()) {
        session.print(jsonOfRows(session, messages));
        return;
    }
    const RowForm form = formOf(session, messages, names);
    for (const auto& message : messages) session.console.line(rowText(session, message, form));
}

std::string pageToken(const MessagePlace& place) {
    return fmt::format("{}.{}", place.date.time_since_epoch().count(), place.id);
}

std::optional<MessagePlace> placeFrom(std::string_view token) {
    const auto words = text::split(token, '.');
    if (words.size() != 2) return std::nullopt;
    const auto date = text::parseSigned64(words[0]);
    const auto id = text::parseSigned64(words[1]);
    if (!date || !id) return std::nullopt;
    return MessagePlace{Date{Duration{*date}}, *id};
}

std::vector<MessageRecord> messagesNumbered(Session& session, const std::vector<std::int64_t>& ids) {
    auto messages = session.app.mail().messages.find(ids);
    for (const auto id : ids)
        if (std::ranges::find(messages, id, &MessageRecord::id) == messages.end())
            throw CommandError(tr("There is no message {}.", id));
    return messages;
}

}
