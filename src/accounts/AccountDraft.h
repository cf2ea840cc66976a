#pragma once

#include "accounts/MailProvider.h"

#include <string>

namespace velmo {

/// The editable form of an account before it exists.
struct AccountDraft {
    AccountDraft() = default;
    /// A fresh draft, with the provider's servers where they are known.
    explicit AccountDraft(MailProvider provider);

    MailProvider provider = MailProvider::other;
    std::string email;
    std::string password;
    /// Empty: the address is the login name.
    std::string username;
    ServerConfig incoming{"", 993, ServerConfig::Security::tls};
    ServerConfig outgoing{"", 587, ServerConfig::Security::startTLS};

    friend bool operator==(const AccountDraft&, const AccountDraft&) = default;
};

/// What a draft means once its texts are cleaned of what pasting and typing leave behind.
struct NormalisedLogin {
    std::string email;    ///< trimmed
    std::string username; ///< trimmed; the address where the draft has none
    std::string secret;   ///< without line breaks and outer spaces; for Gmail without any white space
};

NormalisedLogin normalised(const AccountDraft& draft);

}
