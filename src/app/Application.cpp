#include "app/Application.h"

#include "base/Localisation.h"
#include "platform/FileSettings.h"
#include "platform/Log.h"
#include "records/Labels.h"
#include "store/SampleMail.h"

#include <algorithm>

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

class AccountGone final : public UserError {
  public:
    AccountGone() : UserError(tr("The account of this message is gone.")) {}
};

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
    if (context_) co_return;
    if (accounts_->accounts->empty()) {
        co_await openSamples();
        co_return;
    }
    container_ = ModelContainer::open(directories_.data / "Mail.sqlite", executors_.main);
    writer_ = std::make_unique<SyncWriter>(container_, files_, clock_, executors_.background);
    context_ = container_->makeContext();
    seedDefaultLabels(*context_);
}

Async<void> Application::openSamples() {
    isShowingSamples_ = true;
    container_ = ModelContainer::temporary(executors_.main);
    writer_ = std::make_unique<SyncWriter>(container_, files_, clock_, executors_.background);
    context_ = container_->makeContext();
    seedDefaultLabels(*context_);
    co_await fillWithSamples(*writer_, clock_->now());
}

std::vector<MailAccount> Application::mailAccounts() const {
    if (isShowingSamples_) return {sampleAccount()};
    return accounts_->accounts.get();
}

std::unique_ptr<SyncEngine> Application::makeEngine(const MailAccount& account) {
    auto credential = [this, account] { return accounts_->credential(account); };
    auto onMain = [main = executors_.main, credential]() -> Async<MailCredential> { return runOn(main, credential); };
    return std::make_unique<SyncEngine>(account.id, account.incoming, std::move(onMain), *clock_, executors_.io);
}

Async<PassResult> Application::sync(MailAccount account, std::function<void(const PassProgress&)> onProgress) {
    co_await openMail();
    const auto engine = makeEngine(account);
    const auto label = labelsNewMailAutomatically(*settings_) ? LabelNewMail::yes : LabelNewMail::no;
    std::exception_ptr failure;
    PassResult result;
    try {
        PassHooks hooks;
        hooks.onProgress = std::move(onProgress);
        result = co_await passOver(*engine, *writer_, account.id, label, std::move(hooks));
    } catch (...) {
        failure = std::current_exception();
        if (!isCancellation(failure))
            log("Mail").error("Sync failed for {}: {}", priv(account.email), pub(sentenceOf(failure)));
    }
    co_await ignoreCancellation();
    co_await engine->disconnect();
    co_await allowCancellation();
    if (failure) std::rethrow_exception(failure);
    co_return result;
}

Async<Bytes> Application::source(MessageRecord record) {
    if (isShowingSamples_) {
        auto sample = sampleSource(record.mailboxPath, static_cast<std::uint32_t>(record.uid), clock_->now());
        if (sample) co_return std::move(*sample);
        throw AccountGone();
    }
    const BodyKey key = BodyKey::of(record);
    auto held = co_await callOn(executors_.background, [&] { return files_.loadBody(key); });
    if (held) co_return std::move(*held);
    co_return co_await download(std::move(record));
}

Async<Bytes> Application::download(MessageRecord record) {
    const auto& all = accounts_->accounts.get();
    const auto account = std::ranges::find(all, record.accountID, &MailAccount::id);
    if (account == all.end()) throw AccountGone();
    const auto engine = makeEngine(*account);
    Bytes source = co_await engine->fetchRawMessage(record.mailboxPath, static_cast<std::uint32_t>(record.uid));
    co_await engine->disconnect();
    const BodyKey key = BodyKey::of(record);
    try {
        co_await callOn(executors_.background, [&] { files_.saveBody(source, key); });
        MessageChange change;
        change.hasBody = true;
        context_->messages.change(record.id, change);
    } catch (const UserError& error) {
        // The message can be shown all the same; it will be fetched again.
        log("Mail").warning("Couldn't keep a message body: {}", pub(error.sentence()));
    }
    co_return source;
}

Async<void> Application::remove(UUID accountID) {
    co_await openMail();
    auto dropMail = [this](MailAccount account) -> Async<void> { return writer_->deleteAccount(account.id); };
    accounts_->onRemove = dropMail;
    co_await accounts_->remove(accountID);
}

}
