#pragma once

#include "compose/Outbox.h"
#include "store/StoreHome.h"
#include "support/MailServers.h"
#include "support/TLSRelay.h"

#include <algorithm>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace velmo::test {

/// A mail store with an outbox that has been started, as one process has them open.
class OpenOutbox {
  public:
    explicit OpenOutbox(const StoreHome& home, std::shared_ptr<Clock> clock = std::make_shared<SystemClock>(),
                        Outbox::Transport transport = {})
        : store_(std::make_unique<OpenStore>(home, clock)) {
        network_ = std::make_unique<NetworkMonitor>(store_->runtime.executors().main,
                                                    *store_->mail().environment().clock, path_);
        Outbox::Parts parts(store_->mail(), store_->settings, *network_, folderOf(home));
        parts.transport = std::move(transport);
        auto made = std::make_unique<Outbox>(std::move(parts));
        outbox_ = made.get();
        store_->mail().add(std::move(made));
        outbox_->start();
        store_->run([this] { return outbox_->loaded(); });
    }

    static std::filesystem::path folderOf(const StoreHome& home) { return home.store() / "Outbox"; }

    OpenStore& store() { return *store_; }
    Outbox& outbox() { return *outbox_; }

    void enqueue(const OutboxItem& item) {
        store_->run([&] { return outbox_->enqueue(item); });
    }
    bool takeBack(const UUID& id) {
        return store_->run([&] { return outbox_->takeBack(id); });
    }
    bool retry(const UUID& id) {
        return store_->run([&] { return outbox_->retry(id); });
    }

    /// Nothing is due, and what was sent is filed.
    void settle() {
        store_->run([this] { return outbox_->finished(); });
    }

  private:
    MemoryNetworkPath path_;
    std::unique_ptr<NetworkMonitor> network_; // outlives the outbox
    std::unique_ptr<OpenStore> store_;
    Outbox* outbox_ = nullptr;
};

/// Alice, who sends through a relay.
inline MailAccount aliceBehind(const TLSRelay& relay, const MailServers& servers) {
    MailAccount alice = StoreHome::accountAt(servers.imap(ServerConfig::Security::tls), servers.value("ALICE_USER"));
    alice.email = "alice@example.test";
    alice.outgoing = ServerConfig("localhost", relay.port(), ServerConfig::Security::tls);
    return alice;
}

/// A message of hers to Bob.
inline OutboxItem toBob(const MailAccount& alice, Date sendAt, std::string messageID) {
    OutboxItem item;
    item.id = UUID::random();
    item.accountID = alice.id;
    item.sendAt = sendAt;
    item.to = {{"Bob", "bob@example.test"}};
    item.subject = "Hello";
    item.body = "First\n.\n..\n\nlast line\n.";
    item.messageID = std::move(messageID);
    return item;
}

inline std::string messageIDIn(std::string_view message) {
    constexpr std::string_view name = "Message-ID: ";
    const auto start = message.find(name);
    if (start == std::string_view::npos) return {};
    message.remove_prefix(start + name.size());
    return std::string(message.substr(0, message.find_first_of("\r\n")));
}

/// From the first header of our own on: above them stand those of the servers on the way.
inline std::string ownPart(const std::string& message) {
    return message.substr(std::min(message.find("From: "), message.size()));
}

/// The server may have the whole message.
inline bool wasCarriedWhole(const TLSRelay::Passage& passage) {
    return passage.toServer.contains("\r\nDATA\r\n") && passage.toServer.contains("\r\n.\r\n");
}

}
