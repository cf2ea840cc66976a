#pragma once

#include "accounts/MailProvider.h"
#include "base/Bytes.h"
#include "base/UUID.h"
#include "protocols/ServerConfig.h"

#include <optional>
#include <string>
#include <vector>

namespace velmo {

/// A mail account that has been added. Its `id` never changes, and keys everything that is stored per account.
struct MailAccount {
    UUID id;
    std::string email;
    MailProvider provider = MailProvider::other;
    /// The login name for both servers.
    std::string username;
    ServerConfig incoming;
    ServerConfig outgoing;

    friend bool operator==(const MailAccount&, const MailAccount&) = default;
};

/// The account list as it is stored: a JSON array of objects with the keys "id", "email", "provider", "username",
/// "incoming", "outgoing"; a server has "host", "port", "security".
Bytes accountsJSON(const std::vector<MailAccount>& accounts);

/// Reads it; absent when any part of it is not as written.
std::optional<std::vector<MailAccount>> accountsFromJSON(BytesView json);

}
