#pragma once

#include "base/Runtime.h"
#include "platform/Keychain.h"
#include "platform/Settings.h"
#include "store/MailStore.h"
#include "support/Eventually.h"
#include "support/MailServers.h"
#include "support/TemporaryDirectory.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace velmo::test {

/// What of a mail store outlives its process: its directory, and who the account is.
class StoreHome {
  public:
    explicit StoreHome(MailAccount account_, std::string password_)
        : account(std::move(account_)), password(std::move(password_)) {}

    /// Alice's account on real servers.
    explicit StoreHome(const MailServers& servers) : password(servers.value("ALICE_PASSWORD")) {
        account = accountAt(servers.imap(ServerConfig::Security::tls), servers.value("ALICE_USER"));
    }

    static MailAccount accountAt(ServerConfig server, std::string user) {
        MailAccount account;
        account.id = UUID::random();
        account.email = user + "@example.test";
        account.username = std::move(user);
        account.incoming = std::move(server);
        return account;
    }

    std::filesystem::path store() const { return directory_ / "store"; }
    std::filesystem::path bodyIndex() const { return store() / "Search.sqlite"; }

    /// Keeps the directory as it is now, while nobody has it open; and brings it back.
    void keep() const { copy(store(), directory_ / "kept"); }
    void bringBack() const { copy(directory_ / "kept", store()); }

    MailAccount account;
    std::string password;

  private:
    static void copy(const std::filesystem::path& from, const std::filesystem::path& to) {
        std::filesystem::remove_all(to);
        if (std::filesystem::exists(from)) std::filesystem::copy(from, to, std::filesystem::copy_options::recursive);
    }

    TemporaryDirectory directory_;
};

/// A mail store as one process has it open. The main executor runs inside `run` and `eventually`.
class OpenStore {
  public:
    explicit OpenStore(const StoreHome& home, std::shared_ptr<Clock> clock = std::make_shared<SystemClock>(),
                       std::vector<std::pair<MailAccount, std::string>> others = {})
        : account(home.account),
          clock_(std::move(clock)),
          accounts_(runtime.executors(), *clock_, settings, keychain_) {
        others.insert(others.begin(), {home.account, home.password});
        for (const auto& [one, password] : others)
            runtime.run([&]() -> Async<void> { co_await accounts_.add(one, password); });
        std::filesystem::create_directories(home.store());
        auto container = ModelContainer::open(home.store() / "Mail.sqlite", runtime.executors().main);
        MailStoreParts parts(runtime.executors(), clock_, settings, accounts_, std::move(container),
                             MessageFiles(home.store() / "Messages"));
        parts.bodyIndex = home.bodyIndex();
        mail_ = std::make_unique<MailStore>(std::move(parts));
    }

    ~OpenStore() {
        runtime.run([this] { return mail_->stop(); });
    }
    OpenStore(const OpenStore&) = delete;
    OpenStore& operator=(const OpenStore&) = delete;

    template <class F>
    auto run(F operation) {
        return runtime.run(std::move(operation));
    }

    /// Runs the main executor until the condition holds, or a minute has passed.
    bool eventually(const std::function<bool()>& condition) { return test::eventually(runtime, condition); }

    /// A pass over the account; gives how it ended.
    SyncStatus pass() {
        run([this] { return mail_->sync().syncAccount(account); });
        return mail_->status().of(account.id);
    }

    /// Fetches the bodies that are missing; throws what ended it.
    void prefetch() {
        mail_->prefetch().start(account);
        run([this] { return mail_->prefetch().finished(account.id); });
    }

    std::vector<MessageRecord> held(const std::string& path, std::size_t limit = 10'000) {
        std::vector<MailboxKey> keys{MailboxKey{account.id, path}};
        return mail().context().messages.page(MessageListQuery(std::move(keys), limit));
    }

    MailStore& mail() { return *mail_; }
    MessageFiles& files() { return mail_->environment().files; }

    Runtime runtime;
    MemorySettings settings;
    MailAccount account;

  private:
    MemoryKeychain keychain_;
    std::shared_ptr<Clock> clock_;
    AccountStore accounts_;
    std::unique_ptr<MailStore> mail_;
};

}
