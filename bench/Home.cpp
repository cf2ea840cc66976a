#include "bench/Home.h"

#include "support/MailServers.h"

namespace velmo::bench {

void Home::add(const MailAccount& account, const std::string& secret) {
    Runtime runtime;
    Application application(runtime.executors());
    runtime.run([&]() -> Async<void> { co_await application.accounts().add(account, secret); });
}

std::vector<UUID> Home::addAccounts(int count) {
    std::vector<UUID> ids;
    for (int i = 0; i < count; ++i) {
        MailAccount account;
        account.id = ids.emplace_back(UUID::random());
        account.email = account.username = "person" + std::to_string(i) + "@localhost";
        account.incoming = account.outgoing = ServerConfig("127.0.0.1", 1, ServerConfig::Security::tls);
        add(account, "secret");
    }
    return ids;
}

void Home::addAccount(const test::MailServers& servers, const std::string& user) {
    MailAccount account;
    account.id = UUID::random();
    account.email = account.username = servers.value(user + "_USER");
    account.incoming = servers.imap(ServerConfig::Security::tls);
    account.outgoing = servers.smtp(ServerConfig::Security::startTLS);
    add(account, servers.value(user + "_PASSWORD"));
}

void Home::use(const std::function<void(Runtime&, Application&)>& work) {
    Runtime runtime;
    Application application(runtime.executors());
    runtime.run([&]() -> Async<void> { co_await application.openMail(); });
    work(runtime, application);
    runtime.run([&]() -> Async<void> { co_await application.close(); });
}

std::vector<std::string> Home::call(const std::string& program, std::vector<std::string> words) const {
    words.insert(words.begin(), (programs_ / program).string());
    return words;
}

}
