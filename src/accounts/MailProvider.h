#pragma once

#include "protocols/ServerConfig.h"

#include <array>
#include <optional>
#include <string>
#include <string_view>

namespace velmo {

/// Who runs the servers of an account.
enum class MailProvider { google, microsoft, icloud, yahoo, aol, fastmail, zoho, other };

/// In the order of the provider picker.
inline constexpr std::array allMailProviders{MailProvider::google, MailProvider::microsoft, MailProvider::icloud,
                                             MailProvider::yahoo,  MailProvider::aol,       MailProvider::fastmail,
                                             MailProvider::zoho,   MailProvider::other};

enum class SignInKind {
    password,            ///< the person's own password
    appPassword,         ///< a password made for this program at the provider
    appSpecificPassword, ///< the same under another name
    oauth,               ///< a page of the provider; no password reaches this program
};

struct ServerPair {
    ServerPair(ServerConfig incoming_, ServerConfig outgoing_)
        : incoming(std::move(incoming_)), outgoing(std::move(outgoing_)) {}

    ServerConfig incoming; ///< IMAP
    ServerConfig outgoing; ///< SMTP submission

    friend bool operator==(const ServerPair&, const ServerPair&) = default;
};

/// The stored word, "google" and so on.
std::string_view rawText(MailProvider provider);
std::optional<MailProvider> mailProviderFrom(std::string_view rawText);

/// "Gmail" and so on.
std::string name(MailProvider provider);

SignInKind signInKind(MailProvider provider);

/// The provider's public servers; absent for `other`.
std::optional<ServerPair> defaultServers(MailProvider provider);

/// The provider that has the address's domain; absent when none of the known ones has.
std::optional<MailProvider> detectedProvider(std::string_view email);

/// The servers worked out from the address: those of its provider, or a guess from its domain. Absent for an address
/// without a valid domain.
std::optional<ServerPair> inferredServers(std::string_view email);

}
