#pragma once

#include "compose/Outbox.h"
#include "store/StoreHome.h"
#include "support/MailServers.h"

#include <memory>
#include <string>
#include <vector>

namespace velmo::test {

/// Alice and Bob with their mail on real servers, and an outbox that has been started.
class WritingRig {
  public:
    WritingRig() : home_(aliceOf(servers_), servers_.value("ALICE_PASSWORD")), bob(bobOf(servers_)) { open(); }
    ~WritingRig() { store.reset(); }
    WritingRig(const WritingRig&) = delete;
    WritingRig& operator=(const WritingRig&) = delete;

    /// The program ends, something happens, and it starts again.
    template <class Meanwhile>
    void reopen(Meanwhile meanwhile) {
        store.reset();
        meanwhile();
        open();
    }

    MailStore& mail() { return store->mail(); }
    std::filesystem::path outboxFolder() const { return home_.store() / "Outbox"; }
    const MailAccount& alice() const { return home_.account; }

    void pass() {
        for (const auto& account : {alice(), bob}) store->run([&] { return mail().sync().syncAccount(account); });
    }

    /// What the outbox holds has gone, and its copies are filed.
    void settle() {
        store->run([this] { return outbox->finished(); });
    }

    std::vector<MessageRecord> held(const MailAccount& account, const std::string& path) {
        std::vector<MailboxKey> keys{MailboxKey{account.id, path}};
        return mail().context().messages.page(MessageListQuery(std::move(keys)));
    }

    /// The inbox, once it holds so many messages or a minute has passed.
    std::vector<MessageRecord> inbox(const MailAccount& account, std::size_t count) {
        (void)store->eventually([&] {
            if (held(account, "INBOX").size() >= count) return true;
            store->run([&] { return mail().sync().syncAccount(account); });
            return held(account, "INBOX").size() >= count;
        });
        return held(account, "INBOX");
    }

    std::filesystem::path maildirOfAlice() const { return servers_.value("ALICE_MAILDIR"); }

    std::string passwordOf(const MailAccount& account) const {
        return servers_.value(account.id == bob.id ? "BOB_PASSWORD" : "ALICE_PASSWORD");
    }

    Bytes source(const MessageRecord& record) {
        return store->run([&] { return mail().bodies().source(record); });
    }

  private:
    void open() {
        store = std::make_unique<OpenStore>(home_, std::make_shared<SystemClock>(),
                                            std::vector{std::pair{bob, servers_.value("BOB_PASSWORD")}});
        network_ =
            std::make_unique<NetworkMonitor>(store->runtime.executors().main, *mail().environment().clock, path_);
        auto made = std::make_unique<Outbox>(Outbox::Parts(mail(), store->settings, *network_, outboxFolder()));
        outbox = made.get();
        mail().add(std::move(made));
        outbox->start();
        store->settings.setInteger("undoSendSeconds", 0);
        pass();
    }

    static MailAccount aliceOf(const MailServers& servers) {
        MailAccount account =
            StoreHome::accountAt(servers.imap(ServerConfig::Security::tls), servers.value("ALICE_USER"));
        account.email = "alice@example.test";
        account.outgoing = servers.smtp(ServerConfig::Security::startTLS);
        return account;
    }

    static MailAccount bobOf(const MailServers& servers) {
        MailAccount account =
            StoreHome::accountAt(servers.imap(ServerConfig::Security::tls), servers.value("BOB_USER"));
        account.email = "bob@example.test";
        account.outgoing = servers.smtp(ServerConfig::Security::tls);
        return account;
    }

    MailServers servers_;
    MemoryNetworkPath path_;
    StoreHome home_;
    std::unique_ptr<NetworkMonitor> network_;

  public:
    MailAccount bob;
    std::unique_ptr<OpenStore> store;
    Outbox* outbox = nullptr;
};

}
