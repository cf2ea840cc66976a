#include "store/ServerCommands.h"

#include "base/Localisation.h"

#include <functional>
#include <utility>

namespace velmo {

namespace {

constexpr const char* deletedFlag = "\\Deleted";

using Client = std::shared_ptr<IMAPClient>;
using Change = std::function<Async<void>(IMAPClient&)>;

enum class Selecting {
    always,  ///< which proves that the session is alive
    ifNeeded ///< for a change that may be tried twice
};

/// One change of the messages of a group, and how far it came.
class Command {
  public:
    Command(std::shared_ptr<SyncEngine> engine, MessageGroup group, Selecting selecting)
        : engine_(std::move(engine)), group_(std::move(group)), set_(uidSet(group_.uids)), selecting_(selecting) {}

    const std::string& path() const { return group_.mailbox.path; }
    const std::string& set() const { return set_; }

    Async<CommandOutcome> run(const Change& change) {
        CommandOutcome outcome;
        for (int attempt = 1; attempt <= 2; ++attempt) {
            client_.reset();
            isSent_ = false;
            outcome.failure = co_await detail::caught([&] { return tryOnce(change); });
            const bool mayTryAgain = !isSent_ || selecting_ == Selecting::ifNeeded;
            if (!client_ || !mayTryAgain || !isDeadSession(outcome.failure)) break;
        }
        outcome.isUncertain = outcome.failure && isSent_;
        co_return outcome;
    }

    /// Takes the marks off that a broken deletion may have left, and that would make somebody's next EXPUNGE take the
    /// messages. As well as it can.
    Async<void> unmark(const CommandOutcome& outcome) {
        if (!outcome.isUncertain || !isDeadSession(outcome.failure)) co_return;
        const Change change = [this](IMAPClient& client) {
            return client.store(path(), set_, IMAPClient::FlagChange::remove, {deletedFlag});
        };
        co_await detail::caught([&] { return tryOnce(change); });
    }

  private:
    Async<void> tryOnce(const Change& change) {
        client_ = co_await engine_->connectedClient();
        const auto section = [this, &change]() -> Async<void> {
            if (selecting_ == Selecting::always || client_->selectedPath() != path()) co_await client_->select(path());
            const auto numbering = client_->selectedState() ? client_->selectedState()->uidValidity : 0;
            if (numbering != 0 && group_.uidValidity != 0 && numbering != group_.uidValidity) throw RenumberedMailbox();
            isSent_ = true;
            co_await change(*client_);
        };
        co_await client_->locked(section);
    }

    /// The server may be well, but this session is not.
    bool isDeadSession(const std::exception_ptr& failure) const {
        if (!failure || isCancellation(failure)) return false;
        try {
            std::rethrow_exception(failure);
        } catch (const IMAPError& error) {
            return error.kind() != IMAPError::Kind::commandFailed &&
                   error.kind() != IMAPError::Kind::authenticationFailed;
        } catch (...) {
            return false;
        }
    }

    std::shared_ptr<SyncEngine> engine_;
    MessageGroup group_;
    std::string set_;
    Selecting selecting_;
    Client client_; ///< absent: no session could be had
    bool isSent_ = false;
};

}

CommandOutcome CommandOutcome::cancelled() {
    CommandOutcome outcome;
    outcome.failure = std::make_exception_ptr(Cancelled());
    return outcome;
}

RenumberedMailbox::RenumberedMailbox()
    : UserError(tr("The folder has changed on the server, so that the messages couldn't be told apart. "
                   "Please try again.")) {}

Async<CommandOutcome> moveOnServer(std::shared_ptr<SyncEngine> engine, MessageGroup group, std::string target) {
    Command command(std::move(engine), std::move(group), Selecting::always);
    bool marks = false;
    IMAPCopiedUIDs copied;
    std::uint32_t firstArrived = 0;
    const Change change = [&](IMAPClient& client) -> Async<void> {
        marks = !client.has("MOVE");
        if (!client.has("UIDPLUS")) {
            std::vector<std::string> paths(1, target);
            const auto told = co_await client.statuses(std::move(paths));
            firstArrived = told.front() ? told.front()->uidNext : 0;
        }
        copied = co_await client.moveMessages(command.path(), command.set(), target);
    };
    CommandOutcome outcome = co_await command.run(change);
    outcome.copied = std::move(copied);
    outcome.firstArrived = firstArrived;
    if (marks) co_await command.unmark(outcome);
    co_return outcome;
}

Async<CommandOutcome> deleteOnServer(std::shared_ptr<SyncEngine> engine, MessageGroup group) {
    Command command(std::move(engine), std::move(group), Selecting::always);
    const Change change = [&](IMAPClient& client) { return client.deleteMessages(command.path(), command.set()); };
    CommandOutcome outcome = co_await command.run(change);
    co_await command.unmark(outcome);
    co_return outcome;
}

Async<CommandOutcome> setFlagOnServer(std::shared_ptr<SyncEngine> engine, MessageGroup group,
                                      IMAPClient::FlagChange change, std::string flag) {
    Command command(std::move(engine), std::move(group), Selecting::ifNeeded);
    const Change store = [&](IMAPClient& client) {
        return client.store(command.path(), command.set(), change, {flag});
    };
    co_return co_await command.run(store);
}

}
