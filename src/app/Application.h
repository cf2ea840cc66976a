#pragma once

#include "accounts/AccountStore.h"
#include "base/Async.h"
#include "base/Clock.h"
#include "base/Runtime.h"
#include "platform/Directories.h"
#include "platform/Keychain.h"
#include "platform/Settings.h"
#include "records/ModelContext.h"
#include "store/AccountPass.h"
#include "sync/SyncWriter.h"

#include <functional>
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

    AccountStore& accounts() { return *accounts_; }
    Keychain& keychain() { return *keychain_; }
    Clock& clock() { return *clock_; }

    /// Opens the mail store; does nothing when it is open. Throws ModelStoreError::inUse while another process has it.
    Async<void> openMail();

    /// True when `openMail` found no account and filled in the samples.
    bool isShowingSamples() const { return isShowingSamples_; }

    /// The main executor's view of the store; only after `openMail`.
    ModelContext& mail() { return *context_; }

    /// The accounts whose mail is open: those of the list, or the one of the samples.
    std::vector<MailAccount> mailAccounts() const;

    /// One pass over every mailbox of the account, with a session of its own.
    Async<PassResult> sync(MailAccount account, std::function<void(const PassProgress&)> onProgress);

    /// The whole source of a message: from the body files, or else from the server, and then kept.
    Async<Bytes> source(MessageRecord record);

    /// Removes the account with its mail, its bodies and its secret.
    Async<void> remove(UUID accountID);

  private:
    Async<void> openSamples();
    Async<Bytes> download(MessageRecord record);
    std::unique_ptr<SyncEngine> makeEngine(const MailAccount& account);

    Executors executors_;
    std::shared_ptr<Clock> clock_;
    Directories directories_;
    std::unique_ptr<Settings> settings_;
    std::unique_ptr<Keychain> keychain_;
    std::unique_ptr<AccountStore> accounts_;
    MessageFiles files_;
    std::shared_ptr<ModelContainer> container_;
    std::unique_ptr<ModelContext> context_;
    std::unique_ptr<SyncWriter> writer_;
    bool isShowingSamples_ = false;
};

}
