#include "accounts/MailAccount.h"

#include <limits>
#include <nlohmann/json.hpp>

namespace velmo {

namespace {

using json = nlohmann::ordered_json;

json serverJSON(const ServerConfig& server) {
    return {{"host", server.host}, {"port", server.port}, {"security", rawText(server.security)}};
}

std::optional<std::string> textAt(const json& object, const char* key) {
    const auto found = object.find(key);
    if (found == object.end() || !found->is_string()) return std::nullopt;
    return found->get<std::string>();
}

std::optional<int> portAt(const json& object) {
    const auto found = object.find("port");
    if (found == object.end() || !found->is_number_integer()) return std::nullopt;
    const auto value = found->get<std::int64_t>();
    if (value < 0 || value > std::numeric_limits<int>::max()) return std::nullopt;
    return static_cast<int>(value);
}

std::optional<ServerConfig> serverAt(const json& account, const char* key) {
    const auto found = account.find(key);
    if (found == account.end() || !found->is_object()) return std::nullopt;
    auto host = textAt(*found, "host");
    const auto port = portAt(*found);
    const auto security = securityFrom(textAt(*found, "security").value_or(""));
    if (!host || !port || !security) return std::nullopt;
    return ServerConfig(std::move(*host), *port, *security);
}

std::optional<MailAccount> accountFrom(const json& object) {
    if (!object.is_object()) return std::nullopt;
    const auto id = UUID::parse(textAt(object, "id").value_or(""));
    auto email = textAt(object, "email");
    const auto provider = mailProviderFrom(textAt(object, "provider").value_or(""));
    auto username = textAt(object, "username");
    auto incoming = serverAt(object, "incoming");
    auto outgoing = serverAt(object, "outgoing");
    if (!id || !email || !provider || !username || !incoming || !outgoing) return std::nullopt;
    return MailAccount{
        *id, std::move(*email), *provider, std::move(*username), std::move(*incoming), std::move(*outgoing)};
}

}

Bytes accountsJSON(const std::vector<MailAccount>& accounts) {
    json list = json::array();
    for (const auto& account : accounts)
        list.push_back({{"id", account.id.text()},
                        {"email", account.email},
                        {"provider", rawText(account.provider)},
                        {"username", account.username},
                        {"incoming", serverJSON(account.incoming)},
                        {"outgoing", serverJSON(account.outgoing)}});
    return list.dump(-1, ' ', false, json::error_handler_t::replace);
}

std::optional<std::vector<MailAccount>> accountsFromJSON(BytesView bytes) {
    const json list = json::parse(bytes, nullptr, /*allow_exceptions=*/false);
    if (!list.is_array()) return std::nullopt;
    std::vector<MailAccount> accounts;
    for (const auto& object : list) {
        auto account = accountFrom(object);
        if (!account) return std::nullopt;
        accounts.push_back(std::move(*account));
    }
    return accounts;
}

}
