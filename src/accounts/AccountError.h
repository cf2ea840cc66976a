#pragma once

#include "accounts/MailProvider.h"
#include "base/UserError.h"

#include <optional>
#include <string>

namespace velmo {

/// Why an account could not be added or used.
class AccountError final : public UserError {
  public:
    enum class Kind {
        duplicate,            ///< detail: the address
        cannotConnect,        ///< detail: the host
        authenticationFailed, ///< detail: "IMAP", "SMTP", or the host whose secret is gone
        unexpectedResponse,   ///< detail: "IMAP" or "SMTP"
        signInNotConfigured,  ///< provider
        signInFailed,         ///< provider
        invalidEmail,
        googleAppPasswordRejected,
        invalidLogin, ///< the login name or the password cannot stand in a protocol line
    };

    static AccountError duplicate(std::string email);
    static AccountError cannotConnect(std::string host);
    static AccountError authenticationFailed(std::string server);
    static AccountError unexpectedResponse(std::string server);
    static AccountError signInNotConfigured(MailProvider provider);
    static AccountError signInFailed(MailProvider provider);
    static AccountError invalidEmail();
    static AccountError googleAppPasswordRejected();
    static AccountError invalidLogin();

    Kind kind() const { return kind_; }
    /// The payload of the kinds that have a text; empty otherwise.
    const std::string& detail() const { return detail_; }
    std::optional<MailProvider> provider() const { return provider_; }

    friend bool operator==(const AccountError& a, const AccountError& b) {
        return a.kind_ == b.kind_ && a.detail_ == b.detail_ && a.provider_ == b.provider_;
    }

  private:
    AccountError(Kind kind, std::string sentence, std::string detail = {}, std::optional<MailProvider> provider = {});

    Kind kind_;
    std::string detail_;
    std::optional<MailProvider> provider_;
};

}
