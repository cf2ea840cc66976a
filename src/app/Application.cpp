#include "app/Application.h"

#include "compose/Signatures.h"
#include "compose/WrittenMessage.h"
#include "platform/FileSettings.h"
#include "platform/Log.h"
#include "records/Labels.h"
#include "store/SampleMail.h"

namespace velmo {

namespace {

Directories madeDirectories() {
    auto directories = Directories::fromEnvironment();
    directories.make();
    return directories;
}

/// The samples belong to an account that is in no list.
MailAccount sampleAccount() {
    MailAccount account;
    account.email = std::string(sampleAddress);
    return account;
}

}

Application::Application(const Executors& executors)
    : executors_(executors),
      clock_(std::make_shared<SystemClock>()),
      directories_(madeDirectories()),
      settings_(std::make_unique<FileSettings>(directories_.config / "settings.json")),
      keychain_(openKeychain(directories_, *settings_)),
      accounts_(std::make_unique<AccountStore>(executors_, *clock_, *settings_, *keychain_)),
      files_(directories_.data / "Messages", directories_.cache / "Messages") {
    startLogging(directories_);
}

Application::~Application() {
    stopLogging();
}

Async<void> Application::openMail() {
    if (store_ && !(store_->isShowingSamples() && !accounts_->accounts->empty())) co_return;
    co_await close();
    if (accounts_->accounts->empty()) {
        co_await openSamples();
        co_return;
    }
    auto container = ModelContainer::open(directories_.data / "Mail.sqlite", executors_.main);
    MailStoreParts parts(executors_, clock_, *settings_, *accounts_, std::move(container), files_);
    parts.bodyIndex = directories_.data / "Search.sqlite";
    store_ = std::make_unique<MailStore>(std::move(parts));
    seedDefaultLabels(store_->context());
    makeOutbox();
}

void Application::makeOutbox() {
    if (!network_) {
        networkPath_ = systemNetworkPath(executors_.io);
        network_ = std::make_unique<NetworkMonitor>(executors_.main, *clock_, *networkPath_);
    }
    auto outbox = std::make_unique<Outbox>(Outbox::Parts(*store_, *settings_, *network_, directories_.data / "Outbox"));
    outbox_ = outbox.get();
    store_->add(std::move(outbox));
}

/// They live in a store of their own, and are read and shown like any other mail.
Async<void> Application::openSamples() {
    auto container = ModelContainer::temporary(executors_.main);
    MailStoreParts parts(executors_, clock_, *settings_, *accounts_, std::move(container), files_);
    parts.isShowingSamples = true;
    store_ = std::make_unique<MailStore>(std::move(parts));
    seedDefaultLabels(store_->context());
    co_await fillWithSamples(store_->environment().writer, clock_->now());
}

Async<void> Application::close() {
    if (!store_) co_return;
    co_await store_->stop();
    outbox_ = nullptr;
    store_.reset();
}

std::vector<MailAccount> Application::mailAccounts() const {
    if (isShowingSamples()) return {sampleAccount()};
    return accounts_->accounts.get();
}

Async<void> Application::remove(UUID accountID) {
    co_await openMail();
    co_await accounts_->remove(accountID);
    Signatures(*settings_).remove(accountID);
    settings_->remove(senderNameKey(accountID));
}

}
