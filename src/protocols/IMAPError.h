#pragma once

#include "base/UserError.h"
#include "protocols/MailConnectionError.h"

#include <optional>
#include <string>

namespace velmo {

/// Bytes that are no IMAP response. The client turns it into IMAPError::unexpected.
class IMAPParseError : public std::exception {
  public:
    enum class Kind { unexpected, unexpectedEnd };

    static IMAPParseError unexpected(std::string text) { return {Kind::unexpected, std::move(text)}; }
    static IMAPParseError unexpectedEnd() { return {Kind::unexpectedEnd, {}}; }

    Kind kind() const { return kind_; }
    /// What was found; empty for `unexpectedEnd`.
    const std::string& text() const { return text_; }
    const char* what() const noexcept override { return kind_ == Kind::unexpected ? text_.c_str() : "unexpected end"; }

    friend bool operator==(const IMAPParseError& a, const IMAPParseError& b) {
        return a.kind_ == b.kind_ && a.text_ == b.text_;
    }

  private:
    IMAPParseError(Kind kind, std::string text) : kind_(kind), text_(std::move(text)) {}

    Kind kind_;
    std::string text_;
};

/// Every failure of an IMAP session. None of its texts ever holds a password or an access token.
class IMAPError : public UserError {
  public:
    enum class Kind {
        connection,           ///< the stream failed; the session is closed
        authenticationFailed, ///< the server refused the sign-in; `text` holds its words
        commandFailed,        ///< the server answered NO or BAD to `command` with `response`; the session goes on
        unexpected,           ///< the server broke the protocol, or an argument would have; `text` says how
        disconnected,         ///< there is no session
    };

    static IMAPError connection(const MailConnectionError& error);
    static IMAPError authenticationFailed(std::string text);
    /// `code` is what the server gave in brackets before its words (RFC 5530).
    static IMAPError commandFailed(std::string command, std::string response, std::string code = {});
    static IMAPError unexpected(std::string text);
    static IMAPError disconnected();

    Kind kind() const { return kind_; }
    const std::string& text() const { return text_; }
    const std::string& command() const { return command_; }
    const std::string& response() const { return text_; }
    const std::string& code() const { return code_; }
    /// Present when the kind is `connection`.
    const std::optional<MailConnectionError>& connectionError() const { return connectionError_; }

    friend bool operator==(const IMAPError& a, const IMAPError& b) {
        return a.kind_ == b.kind_ && a.text_ == b.text_ && a.command_ == b.command_ &&
               a.connectionError_ == b.connectionError_;
    }

  private:
    IMAPError(Kind kind, std::string sentence, std::string text, std::string command = {});

    Kind kind_;
    std::string text_;
    std::string command_;
    std::string code_;
    std::optional<MailConnectionError> connectionError_;
};

}
