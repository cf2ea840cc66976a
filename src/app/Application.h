#pragma once

#include "accounts/AccountStore.h"
#include "base/Async.h"
#include "base/Clock.h"
#include "base/Runtime.h"
#include "compose/Outbox.h"
#include "platform/Directories.h"
#include "platform/Keychain.h"
#include "platform/NetworkPath.h"
#include "platform/Settings.h"
#include "protocols/NetworkMonitor.h"
#include "store/MailStore.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace velmo {

/// The composition root: the long-lived objects of one installation, made in a fixed order.
///
/// Settings, keychain and account list are there from the start. The mail is opened by `openMail`, so that work on
/// accounts alone leaves it to another process. While there is no account, the mail is the built-in sample mailbox in a
/// store of its own that goes with this object.
///
/// Everything here is used on the main executor. Throws what its parts throw, all of it UserError.
class Application {
  public:
    /// Opens what belongs to the installation in the environment, and the log.
    explicit Application(const Executors& executors);
    ~Application();
    Application(const Application&) = delete;
    Application& operator=(const Application&) = delete;

    const Directories& directories() const { return directories_; }
    Settings& settings() { return *settings_; }
    AccountStore& accounts() { return *accounts_; }
    Keychain& keychain() { return *keychain_; }
    Clock& clock() { return *clock_; }

    /// Opens the mail store; does nothing when it is open. Throws ModelStoreError::inUse while another process has it.
    Async<void> openMail();

    /// Ends what the mail store has under way, and closes it. To be awaited before the object goes.
    Async<void> close();

    bool isOpen() const { return store_ != nullptr; }

    /// Only after `openMail`, as are the two below.
    MailStore& store() { return *store_; }

    /// What is on its way out; null while the samples are shown. It sends once it is started, as the store does it.
    Outbox* outbox() { return outbox_; }

    /// True when `openMail` found no account and filled in the samples.
    bool isShowingSamples() const { return store_ && store_->isShowingSamples(); }

    /// The main executor's view of the store.
    ModelContext& mail() { return store_->context(); }

    /// The accounts whose mail is open: those of the list, or the one of the samples.
    std::vector<MailAccount> mailAccounts() const;

    /// Removes the account with its mail, its bodies and its secret.
    Async<void> remove(UUID accountID);

  private:
    Async<void> openSamples();
    void makeOutbox();

    Executors executors_;
    std::shared_ptr<Clock> clock_;
    Directories directories_;
    std::unique_ptr<Settings> settings_;
    std::unique_ptr<Keychain> keychain_;
    std::unique_ptr<AccountStore> accounts_;
    MessageFiles files_;
    std::unique_ptr<NetworkPath> networkPath_;
    std::unique_ptr<NetworkMonitor> network_;
    std::unique_ptr<MailStore> store_;
    Outbox* outbox_ = nullptr; ///< belongs to the store
};

}
