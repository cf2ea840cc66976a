#include "protocols/ServerConfig.h"

namespace velmo {

std::string_view rawText(ServerConfig::Security security) {
    return security == ServerConfig::Security::tls ? "tls" : "startTLS";
}

std::optional<ServerConfig::Security> securityFrom(std::string_view rawText) {
    if (rawText == "tls") return ServerConfig::Security::tls;
    if (rawText == "startTLS") return ServerConfig::Security::startTLS;
    return std::nullopt;
}

}
