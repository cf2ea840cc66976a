#pragma once

#include "base/Async.h"
#include "base/Flag.h"
#include "base/Task.h"
#include "compose/OutboxFiles.h"
#include "compose/OutboxItem.h"
#include "store/MailStore.h"

#include <exception>
#include <functional>
#include <memory>
#include <vector>

namespace velmo {

/// What is left to do when an item leaves the outbox: a copy of what was sent goes among the sent mail, the draft of it
/// goes from the server, and the message that it answers is marked. One item at a time; an account whose server is out
/// of reach is tried again every minute. A failure of another kind is logged, and ends the matter.
///
/// What was sent stays in the files until this is done, and is brought here again at the next start. Lives on the main
/// executor; `stop` is to be awaited before what it was made of goes.
class OutboxFiling {
  public:
    enum class Ending { sent, discarded };

    /// `files` are used on `fileLane`. `onTried` is called whenever an item has been tried for the first time.
    OutboxFiling(MailStore& mail, const OutboxFiles& files, Executor fileLane, std::function<void()> onTried);

    /// `message` is what was sent; null when the files have it.
    void add(OutboxItemPointer item, Ending ending, std::shared_ptr<const Bytes> message = nullptr);

    /// Something has not been tried yet.
    bool isBusy() const;

    /// Gives what has begun a few seconds, and ends.
    Async<void> stop();

  private:
    struct Entry {
        Entry(OutboxItemPointer item_, Ending ending_, std::shared_ptr<const Bytes> message_)
            : item(std::move(item_)), ending(ending_), message(std::move(message_)) {}

        OutboxItemPointer item;
        Ending ending;
        std::shared_ptr<const Bytes> message;
        bool isTried = false;
        bool isCopied = false;         ///< among the sent mail
        std::optional<Date> notBefore; ///< refused, and to be asked for again then
    };

    Async<void> run();
    Async<void> pass();
    Async<std::exception_ptr> tryFiling(Entry& entry);
    Async<void> file(const MailAccount& account, Entry& entry);
    Async<void> markAnswered(const OutboxItem& item);
    void tellRefusal(Entry& entry, const std::exception_ptr& failure);
    bool isDue(const Entry& entry) const;
    bool lacksCopy(const Entry& entry) const;
    Async<std::shared_ptr<const Bytes>> messageOf(const Entry& entry) const;
    Async<void> forget(const Entry& entry) const;
    Async<void> untilTried();

    MailStore& mail_;
    StoreEnvironment& environment_;
    const OutboxFiles& files_;
    Executor fileLane_;
    std::function<void()> onTried_;
    std::vector<std::shared_ptr<Entry>> entries_;
    Flag added_, tried_;
    Task worker_;
    bool isRunning_ = false;
    bool isStopping_ = false;
};

/// True for servers that file what they send by themselves: a copy of ours would be a second one.
bool filesSentMail(const MailAccount& account);

/// True for failures of the way to a server, not of what it was asked.
bool isConnectionFailure(const std::exception_ptr& failure);

}
