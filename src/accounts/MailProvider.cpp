#include "accounts/MailProvider.h"

#include "base/Localisation.h"
#include "base/Text.h"
#include "formats/IMAPAddress.h"

#include <algorithm>
#include <cstddef>
#include <span>

namespace velmo {

namespace {

using Security = ServerConfig::Security;

struct Endpoint {
    std::string_view host;
    int port;
    Security security;
};

struct ProviderRow {
    MailProvider provider;
    std::string_view rawText;
    const char* name;
    SignInKind signIn;
    std::string_view incomingHost;
    Endpoint outgoing;
};

constexpr int imapPort = 993;
constexpr int submissionPort = 587;
constexpr int submissionTLSPort = 465;

constexpr std::array<ProviderRow, allMailProviders.size()> providers{{
    {MailProvider::google,
     "google",
     "Gmail",
     SignInKind::appPassword,
     "imap.gmail.com",
     {"smtp.gmail.com", submissionTLSPort, Security::tls}},
    {MailProvider::microsoft,
     "microsoft",
     "Outlook",
     SignInKind::oauth,
     "outlook.office365.com",
     {"smtp.office365.com", submissionPort, Security::startTLS}},
    {MailProvider::icloud,
     "icloud",
     "iCloud",
     SignInKind::appSpecificPassword,
     "imap.mail.me.com",
     {"smtp.mail.me.com", submissionPort, Security::startTLS}},
    {MailProvider::yahoo,
     "yahoo",
     "Yahoo",
     SignInKind::appPassword,
     "imap.mail.yahoo.com",
     {"smtp.mail.yahoo.com", submissionTLSPort, Security::tls}},
    {MailProvider::aol,
     "aol",
     "AOL",
     SignInKind::appPassword,
     "imap.aol.com",
     {"smtp.aol.com", submissionTLSPort, Security::tls}},
    {MailProvider::fastmail,
     "fastmail",
     "Fastmail",
     SignInKind::appPassword,
     "imap.fastmail.com",
     {"smtp.fastmail.com", submissionTLSPort, Security::tls}},
    {MailProvider::zoho,
     "zoho",
     "Zoho",
     SignInKind::appSpecificPassword,
     "imap.zoho.com",
     {"smtp.zoho.com", submissionTLSPort, Security::tls}},
    {MailProvider::other, "other", "Other", SignInKind::password, "", {"", 0, Security::tls}},
}};

struct DomainRow {
    std::string_view domain;
    MailProvider provider;
};

constexpr std::array<DomainRow, 16> domains{{
    {"gmail.com", MailProvider::google},
    {"googlemail.com", MailProvider::google},
    {"outlook.com", MailProvider::microsoft},
    {"hotmail.com", MailProvider::microsoft},
    {"live.com", MailProvider::microsoft},
    {"msn.com", MailProvider::microsoft},
    {"icloud.com", MailProvider::icloud},
    {"me.com", MailProvider::icloud},
    {"mac.com", MailProvider::icloud},
    {"ymail.com", MailProvider::yahoo},
    {"rocketmail.com", MailProvider::yahoo},
    {"aol.com", MailProvider::aol},
    {"fastmail.com", MailProvider::fastmail},
    {"fastmail.fm", MailProvider::fastmail},
    {"zoho.com", MailProvider::zoho},
    {"zohomail.com", MailProvider::zoho},
}};

/// Yahoo has a domain in most countries: yahoo.fr, yahoo.co.uk...
constexpr std::string_view yahooPrefix = "yahoo.";

/// Providers that are not in the picker, and whose servers a guess from the domain would miss.
struct ServersRow {
    std::string_view domain;
    std::string_view incomingHost;
    std::string_view outgoingHost;
};
constexpr std::array<ServersRow, 2> otherServers{{
    {"gmx.com", "imap.gmx.com", "mail.gmx.com"},
    {"gmx.net", "imap.gmx.net", "mail.gmx.net"},
}};

const ProviderRow& rowOf(MailProvider provider) {
    return providers[static_cast<std::size_t>(provider)];
}

ServerPair unlistedServers(std::string incomingHost, std::string outgoingHost) {
    return {ServerConfig(std::move(incomingHost), imapPort, Security::tls),
            ServerConfig(std::move(outgoingHost), submissionPort, Security::startTLS)};
}

std::optional<MailProvider> providerOfDomain(std::string_view domain) {
    const auto found = std::ranges::find(domains, domain, &DomainRow::domain);
    if (found != domains.end()) return found->provider;
    if (domain.starts_with(yahooPrefix)) return MailProvider::yahoo;
    return std::nullopt;
}

}

std::string_view rawText(MailProvider provider) {
    return rowOf(provider).rawText;
}

std::optional<MailProvider> mailProviderFrom(std::string_view rawText) {
    const auto found = std::ranges::find(providers, rawText, &ProviderRow::rawText);
    if (found == providers.end()) return std::nullopt;
    return found->provider;
}

std::string name(MailProvider provider) {
    // Only the last one is a word; the others are names.
    if (provider == MailProvider::other) return trNoted("Mail provider that isn't one of the named ones", "Other");
    return rowOf(provider).name;
}

SignInKind signInKind(MailProvider provider) {
    return rowOf(provider).signIn;
}

std::optional<ServerPair> defaultServers(MailProvider provider) {
    const auto& row = rowOf(provider);
    if (row.incomingHost.empty()) return std::nullopt;
    const auto& [host, port, security] = row.outgoing;
    return ServerPair(ServerConfig(std::string(row.incomingHost), imapPort, Security::tls),
                      ServerConfig(std::string(host), port, security));
}

std::optional<MailProvider> detectedProvider(std::string_view email) {
    const auto domain = domainOf(email);
    return domain ? providerOfDomain(*domain) : std::nullopt;
}

std::optional<ServerPair> inferredServers(std::string_view email) {
    const auto domain = domainOf(email);
    if (!domain) return std::nullopt;
    if (const auto provider = providerOfDomain(*domain))
        if (auto servers = defaultServers(*provider)) return servers;
    const auto found = std::ranges::find(otherServers, std::string_view(*domain), &ServersRow::domain);
    if (found != otherServers.end())
        return unlistedServers(std::string(found->incomingHost), std::string(found->outgoingHost));
    return unlistedServers("imap." + *domain, "smtp." + *domain);
}

}
