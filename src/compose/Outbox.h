#pragma once

#include "base/Async.h"
#include "base/Flag.h"
#include "base/Observed.h"
#include "base/Task.h"
#include "compose/OutboxFiles.h"
#include "compose/OutboxFiling.h"
#include "compose/OutboxItem.h"
#include "protocols/NetworkMonitor.h"
#include "protocols/SMTPClient.h"
#include "store/MailService.h"
#include "store/MailStore.h"

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace velmo {

/// The messages on their way out. Whatever a person sends waits here first: for the few seconds in which it can be
/// taken back, or for the time that was chosen. Each item is a file of its own, so that it outlives the process.
///
/// It keeps its Message-ID at each attempt. What becomes of it after a failed one:
///
/// | what happened                                           | the next attempt                 | the person is told |
/// |---------------------------------------------------------|----------------------------------|--------------------|
/// | the server can't be reached, or the machine is offline  | every minute, whatever it takes  | after an hour      |
/// | the server asks to come back later (a code of 4xx)      | after 5, 15 and 60 minutes       | at once            |
/// | the connection ends before the answer to the message    | after 1, 10 and 60 minutes       | at once            |
/// | the server refuses, or those attempts are used up       | when the person says so          | at once            |
///
/// When the connection ends before that answer, nobody knows whether the message arrived: this is the one moment from
/// which a second copy can come, beside the end of the process between the answer and the renaming of the file.
///
/// What was taken back, or sent but not filed yet, stays in the files as well: see OutboxFiles and OutboxFiling.
///
/// Lives on the main executor; files are written and messages built on the background executor. Its operations throw
/// FileError when the disk refuses, and then nothing has changed.
class Outbox final : public MailService {
  public:
    /// How a message is handed to a server; `sendBySMTP` but in tests.
    using Transport =
        std::function<Async<void>(MailAccount, MailCredential, SMTPEnvelope, std::shared_ptr<const Bytes>)>;

    struct Parts {
        Parts(MailStore& mail_, Settings& settings_, NetworkMonitor& network_, std::filesystem::path folder_)
            : mail(mail_), settings(settings_), network(network_), folder(std::move(folder_)) {}

        MailStore& mail;
        Settings& settings;
        NetworkMonitor& network;
        /// Empty for an outbox that keeps nothing.
        std::filesystem::path folder;
        Transport transport; ///< absent: SMTP
    };

    /// What `parts` refers to outlives the outbox; `stop` is to be awaited before it goes.
    explicit Outbox(Parts parts);
    ~Outbox() override;

    /// Waiting, being sent, and failed.
    Observed<std::vector<OutboxItemPointer>> items;
    /// Those being sent right now.
    Observed<std::set<UUID>> sending;

    /// Reads the files, once, and sends what is due. Those of a process that has ended are sent as well.
    void start() override;

    /// Reads the files, once, and waits until they are read; sends nothing by itself.
    Async<void> loaded();

    /// Ends what is under way; what has not been sent stays.
    Async<void> stop() override;

    /// The item is on the disk when this ends.
    Async<void> enqueue(OutboxItem item);

    /// Takes an item back, for `claim`. False when it is gone or being sent.
    Async<bool> takeBack(UUID id);

    /// Hands over an item that was taken back, once; null otherwise. It comes back, to wait for the person, at the next
    /// start or by `putBack`, unless `release` has told that it is safe elsewhere or not wanted any more.
    OutboxItemPointer claim(const UUID& id);
    Async<void> putBack(OutboxItem taken);
    Async<void> release(UUID id);

    /// Keeps what is being written, and can't be saved elsewhere now, as one that was taken back and claimed.
    Async<void> keep(OutboxItem item);

    /// Sends an item that waits, now. False when it is gone or being sent.
    Async<bool> retry(UUID id);

    /// Drops an item and the draft of it on the server. False when it is gone or being sent.
    Async<bool> discard(UUID id);

    /// Null when there is none.
    OutboxItemPointer item(const UUID& id) const;

    /// Sends what a person has sent, without the rest of the time to take it back, and waits for the end of these
    /// sends. What is scheduled, or waits for the person, stays.
    Async<void> flush();

    /// True when `flush` has something to do.
    bool hasUnsent() const;

    /// What the server refused with the former sign-in is tried again.
    void accountChanged(const UUID& accountID) override;

    /// Waits until nothing is due, being sent, or being filed.
    Async<void> finished();

    /// How long a send can be taken back: the setting "undoSendSeconds", or 10.
    static std::chrono::seconds undoWindow(const Settings& settings);

  private:
    struct Built;

    void beginLoading();
    Async<void> load();
    Async<void> recover(const OutboxItem& taken);
    Async<void> run();
    void sendDue();
    bool isDue(const OutboxItem& item) const;
    std::optional<Duration> untilNext() const;
    Async<void> send(OutboxItemPointer item);
    Async<Built> built(const MailAccount& account, const OutboxItem& item) const;
    Async<bool> keeps(const OutboxItem& item, const Bytes& message) const;
    Async<void> sent(OutboxItemPointer item, std::shared_ptr<const Bytes> message);
    std::optional<Duration> nextWait(OutboxItem& item, const std::exception_ptr& failure) const;
    Async<void> failed(const OutboxItem& item, std::exception_ptr failure);
    void tellFailure(const OutboxItem& item, bool isDoubtful);
    void forgetFailure(const UUID& id);
    Async<void> retryAll(std::vector<UUID> ids);
    Async<void> write(const OutboxItem& item) const;
    using FileStep = void (OutboxFiles::*)(const UUID&) const;
    Async<void> take(OutboxItemPointer item, FileStep step);
    void erase(const UUID& id);
    void put(OutboxItemPointer item);
    void ended(const UUID& id);
    void showBanner(std::string text, bool isError, std::optional<std::chrono::seconds> lifetime);

    MailStore& mail_;
    StoreEnvironment& environment_;
    Settings& settings_;
    NetworkMonitor& network_;
    Transport transport_;
    OutboxFiles files_;
    Executor fileLane_; ///< one file operation at a time, in their order
    std::map<UUID, OutboxItemPointer> handedOff_;
    std::map<UUID, Date> failingSince_; ///< when the first of the failures in a row was
    Flag changed_;                      ///< something may be due
    Flag idle_;                         ///< something has ended
    std::map<UUID, Task> sends_;
    OutboxFiling filing_;
    std::vector<OutboxItem> unfiled_; ///< of an earlier process
    Task loading_, timer_, retrying_;
    bool isLoading_ = false; ///< or has loaded
    bool hasStarted_ = false;
    bool isStopping_ = false;
};

}
