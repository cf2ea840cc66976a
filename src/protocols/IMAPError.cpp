#include "protocols/IMAPError.h"

#include "base/Localisation.h"

#include <utility>

namespace velmo {

namespace {

/// What a command does, without what it does it to, which means nothing to a person and may be long.
std::string verbOf(const std::string& command) {
    const auto start = command.starts_with("UID ") ? std::size_t{4} : std::size_t{0};
    return command.substr(0, command.find(' ', start));
}

}

IMAPError::IMAPError(Kind kind, std::string sentence, std::string text, std::string command)
    : UserError(std::move(sentence)), kind_(kind), text_(std::move(text)), command_(std::move(command)) {}

IMAPError IMAPError::connection(const MailConnectionError& error) {
    IMAPError result(Kind::connection, error.sentence(), {});
    result.connectionError_ = error;
    return result;
}

IMAPError IMAPError::authenticationFailed(std::string text) {
    std::string sentence = tr("The mail server didn't accept your sign-in. {}", text);
    return {Kind::authenticationFailed, std::move(sentence), std::move(text)};
}

IMAPError IMAPError::commandFailed(std::string command, std::string response, std::string code) {
    std::string sentence = tr("The mail server refused {}: {}", verbOf(command), response);
    IMAPError result(Kind::commandFailed, std::move(sentence), std::move(response), std::move(command));
    result.code_ = std::move(code);
    return result;
}

IMAPError IMAPError::unexpected(std::string text) {
    std::string sentence = tr("The mail server sent something unexpected: {}", text);
    return {Kind::unexpected, std::move(sentence), std::move(text)};
}

IMAPError IMAPError::disconnected() {
    return {Kind::disconnected, tr("Not connected to the mail server."), {}};
}

}
