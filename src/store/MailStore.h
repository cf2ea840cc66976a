#pragma once

#include "base/Task.h"
#include "records/ModelContainer.h"
#include "store/AccountSync.h"
#include "store/BodyPrefetch.h"
#include "store/BodyStore.h"
#include "store/MailFiling.h"
#include "store/MailService.h"
#include "store/MessageActions.h"
#include "store/MessageLists.h"
#include "store/Selection.h"

#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <vector>

namespace velmo {

/// What a mail store is made of.
struct MailStoreParts {
    MailStoreParts(Executors executors_, std::shared_ptr<Clock> clock_, Settings& settings_, AccountStore& accounts_,
                   std::shared_ptr<ModelContainer> container_, MessageFiles files_)
        : executors(std::move(executors_)),
          clock(std::move(clock_)),
          settings(settings_),
          accounts(accounts_),
          container(std::move(container_)),
          files(std::move(files_)) {}

    Executors executors;
    std::shared_ptr<Clock> clock;
    Settings& settings;
    AccountStore& accounts;
    std::shared_ptr<ModelContainer> container;
    MessageFiles files;
    /// The database of the body index; empty for one in memory.
    std::filesystem::path bodyIndex;
    bool isShowingSamples = false;
};

/// The one object through which everything above it sees mail: the parts that own one matter each, and what keeps them
/// going. Lives on the main executor.
///
/// `stop` is to be awaited before it is dropped.
class MailStore {
  public:
    /// What is given by reference outlives the store. Takes the place of `AccountStore::onRemove`.
    explicit MailStore(MailStoreParts parts);
    ~MailStore();
    MailStore(const MailStore&) = delete;
    MailStore& operator=(const MailStore&) = delete;

    /// Hands over a service; before the first start.
    void add(std::unique_ptr<MailService> service);

    /// Brings the store to the state that the accounts require: the data of older versions brought up to date, the
    /// services started, a sync loop for each account and none for others, something selected. May be repeated.
    Async<void> start();

    /// Starts a pass of each account.
    void refreshAll();

    /// Brings what the person is looking at up to date.
    void refreshVisible();

    /// Ends everything that runs: the action that can still be undone is carried out, and its servers are waited for.
    Async<void> stop();

    bool isShowingSamples() const { return environment_.isShowingSamples; }
    ModelContext& context() { return *context_; }
    StoreEnvironment& environment() { return environment_; }

    StoreStatus& status() { return status_; }
    Troubles& troubles() { return troubles_; }
    MailboxDirectory& mailboxes() { return directory_; }
    AccountSync& sync() { return *sync_; }
    MessageActions& actions() { return *actions_; }
    MailFiling& filing() { return filing_; }
    MessageLists& lists() { return *lists_; }
    Selection& selection() { return selection_; }
    BodyStore& bodies() { return *bodies_; }
    BodyPrefetch& prefetch() { return *prefetch_; }
    BodyIndex& bodyIndex() { return bodyIndex_; }

    /// Told of new mail, as the services are.
    sigc::signal<void(const MailAccount&, const std::vector<SyncedMessage>&)>& mailArrived() { return mailArrived_; }

  private:
    AccountSync::Hooks syncHooks();
    MessageActions::Hooks actionHooks();
    Async<void> keepHouse();
    void startLoops();
    Async<void> endLoop(UUID accountID);
    std::set<UUID> accountsWithout(std::optional<UUID> removed) const;
    std::vector<MailboxRecord> mailboxesBehind(const MessageListSource& source);
    void checked(const MailAccount& account, MailService::Check check);
    std::optional<std::string> chosenMailbox(const UUID& accountID) const;
    Async<void> beginAnew(MailAccount account);
    Async<void> removeAccountData(MailAccount account);
    void inBackground(std::move_only_function<Async<void>()> body);
    void endBannerInTime();

    std::shared_ptr<ModelContainer> container_;
    std::unique_ptr<ModelContext> context_;
    SyncWriter writer_;
    BodyIndex bodyIndex_;
    Troubles troubles_;
    StoreEnvironment environment_;
    StoreStatus status_;
    MailboxDirectory directory_;
    AccountEngines engines_;
    std::shared_ptr<BodyDownloads> downloads_;
    std::shared_ptr<BodyStore> bodies_;
    std::shared_ptr<BodyPrefetch> prefetch_;
    std::shared_ptr<MessageLists> lists_;
    Selection selection_;
    std::shared_ptr<AccountSync> sync_;
    std::shared_ptr<MessageActions> actions_;
    MailFiling filing_;
    std::vector<std::unique_ptr<MailService>> services_;
    sigc::signal<void(const MailAccount&, const std::vector<SyncedMessage>&)> mailArrived_;
    sigc::connection endBanners_;
    std::map<UUID, Task> loops_;
    std::vector<Task> background_;
    bool hasKeptHouse_ = false;
    bool isRunning_ = false;
    bool isStopping_ = false;
};

}
