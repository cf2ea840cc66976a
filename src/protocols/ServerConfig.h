#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace velmo {

/// Where a mail server is and how its stream is secured.
struct ServerConfig {
    enum class Security {
        tls,      ///< TLS from the first byte (RFC 8314 §3)
        startTLS, ///< in clear at first, upgraded by the protocol's STARTTLS command
    };

    ServerConfig() = default;
    ServerConfig(std::string host_, int port_, Security security_)
        : host(std::move(host_)), port(port_), security(security_) {}

    std::string host;
    int port = 0;
    Security security = Security::tls;

    friend bool operator==(const ServerConfig&, const ServerConfig&) = default;
};

/// The stored word: "tls" or "startTLS".
std::string_view rawText(ServerConfig::Security security);
std::optional<ServerConfig::Security> securityFrom(std::string_view rawText);

}
