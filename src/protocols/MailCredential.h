#pragma once

#include <string>
#include <utility>

namespace velmo {

/// How to sign in to a mail server. The secret never goes into an error, a log line or a description.
class MailCredential {
  public:
    enum class Kind { password, oauth };

    static MailCredential password(std::string username, std::string password) {
        return {Kind::password, std::move(username), std::move(password)};
    }
    static MailCredential oauth(std::string username, std::string accessToken) {
        return {Kind::oauth, std::move(username), std::move(accessToken)};
    }

    Kind kind() const { return kind_; }
    const std::string& username() const { return username_; }
    /// The password, or the access token.
    const std::string& secret() const { return secret_; }

    friend bool operator==(const MailCredential&, const MailCredential&) = default;

  private:
    MailCredential(Kind kind, std::string username, std::string secret)
        : kind_(kind), username_(std::move(username)), secret_(std::move(secret)) {}

    Kind kind_;
    std::string username_;
    std::string secret_;
};

}
