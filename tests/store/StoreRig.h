#pragma once

#include "base/ManualClock.h"
#include "base/Runtime.h"
#include "platform/Keychain.h"
#include "platform/Settings.h"
#include "protocols/IMAPClient.h"
#include "records/ModelContext.h"
#include "store/AccountSync.h"
#include "support/Eventually.h"
#include "support/MailServers.h"
#include "support/TemporaryDirectory.h"

#include <functional>
#include <memory>
#include <string>

namespace velmo::test {

/// What the parts of the mail store work with, and one account in it. The main executor runs inside `run` and
/// `eventually`.
class StoreRig {
  public:
    /// The account is at `server`; the clock is the given one.
    StoreRig(const ServerConfig& server, std::string user, std::string password, std::shared_ptr<Clock> clock)
        : clock_(std::move(clock)),
          accounts_(runtime.executors(), *clock_, settings, keychain_),
          container_(ModelContainer::open(directory / "Mail.sqlite", runtime.executors().main)),
          context(container_->makeContext()),
          writer_(container_, MessageFiles(directory / "Messages"), clock_, runtime.executors().background),
          index({}),
          troubles(settings, clock_),
          environment{runtime.executors(),
                      clock_,
                      settings,
                      accounts_,
                      *context,
                      writer_,
                      MessageFiles(directory / "Messages"),
                      index,
                      troubles},
          directoryOfMailboxes(environment),
          engines(environment) {
        account.id = UUID::random();
        account.email = "alice@example.test";
        account.username = std::move(user);
        account.incoming = server;
        runtime.run([&]() -> Async<void> { co_await accounts_.add(account, password); });
    }

    /// Alice's account on real servers.
    StoreRig(const MailServers& servers, std::shared_ptr<Clock> clock)
        : StoreRig(servers.imap(ServerConfig::Security::tls), servers.value("ALICE_USER"),
                   servers.value("ALICE_PASSWORD"), std::move(clock)) {}

    template <class F>
    auto run(F operation) {
        return runtime.run(std::move(operation));
    }

    /// Runs the main executor until the condition holds, or a minute has passed.
    bool eventually(const std::function<bool()>& condition) { return test::eventually(runtime, condition); }

    std::vector<MessageRecord> held(const std::string& path, std::size_t limit = 1000) {
        std::vector<MailboxKey> keys{MailboxKey{account.id, path}};
        return context->messages.page(MessageListQuery(std::move(keys), limit));
    }

    Runtime runtime;
    TemporaryDirectory directory;
    MemorySettings settings;
    MailAccount account;

  private:
    MemoryKeychain keychain_;
    std::shared_ptr<Clock> clock_;
    AccountStore accounts_;
    std::shared_ptr<ModelContainer> container_;

  public:
    std::unique_ptr<ModelContext> context;

  private:
    SyncWriter writer_;

  public:
    BodyIndex index;
    Troubles troubles;
    StoreEnvironment environment;
    StoreStatus status;
    MailboxDirectory directoryOfMailboxes;
    AccountEngines engines;
};

}
