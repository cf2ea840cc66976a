#pragma once

#include "base/UserError.h"
#include "protocols/MailConnectionError.h"

#include <optional>
#include <string>

namespace velmo {

/// Why a message was not sent. None of its texts ever holds a password or an access token, a control character, or
/// more of a server's words than a person would read.
class SMTPError : public UserError {
  public:
    enum class Kind {
        connection,           ///< the stream failed
        rejected,             ///< the server refused `stage` with the words in `text`
        unexpected,           ///< the server broke the protocol, or an argument would have; `text` says how
        authenticationFailed, ///< the server did not accept the sign-in
    };

    static SMTPError connection(const MailConnectionError& error);
    /// `stage` is a word for the step ("greeting", "sender" ...), or the address of the recipient that was refused.
    static SMTPError rejected(std::string stage, std::string_view reply);
    /// The server says that it may take the message later: a code from 400 to 499 (RFC 5321 §4.2.1).
    static SMTPError deferred(std::string stage, std::string_view reply);
    static SMTPError unexpected(std::string_view text);
    static SMTPError authenticationFailed();

    /// The same failure after the whole message had been handed to the stream.
    SMTPError asUncertain() const;

    Kind kind() const { return kind_; }
    const std::string& stage() const { return stage_; }
    const std::string& text() const { return text_; }
    const std::string& reply() const { return text_; }
    /// Present when the kind is `connection`.
    const std::optional<MailConnectionError>& connectionError() const { return connectionError_; }

    /// True when the server may have accepted the message although nobody heard it say so: the stream died, or what it
    /// carried made no sense, between the end of the message and the answer to it. Sending again may then deliver
    /// twice. After any other failure nothing has been delivered.
    bool isUncertain() const { return isUncertain_; }

    /// True for what `deferred` made: the same message may be taken later.
    bool isTemporary() const { return isTemporary_; }

    friend bool operator==(const SMTPError& a, const SMTPError& b) {
        return a.kind_ == b.kind_ && a.stage_ == b.stage_ && a.text_ == b.text_ &&
               a.connectionError_ == b.connectionError_ && a.isUncertain_ == b.isUncertain_ &&
               a.isTemporary_ == b.isTemporary_;
    }

  private:
    SMTPError(Kind kind, std::string sentence, std::string text, std::string stage = {});

    Kind kind_;
    std::string stage_;
    std::string text_;
    std::optional<MailConnectionError> connectionError_;
    bool isUncertain_ = false;
    bool isTemporary_ = false;
};

}
