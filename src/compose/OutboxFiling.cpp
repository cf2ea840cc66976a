#include "compose/OutboxFiling.h"

#include "base/Localisation.h"
#include "base/Text.h"
#include "base/UserError.h"
#include "formats/WhiteSpace.h"
#include "platform/FileError.h"
#include "platform/Log.h"
#include "protocols/IMAPError.h"
#include "protocols/SMTPError.h"

#include <algorithm>
#include <array>
#include <set>
#include <string>
#include <string_view>
#include <utility>

namespace velmo {

namespace {

constexpr Duration retryInterval{60'000};
constexpr std::chrono::hours refusedInterval{1};
/// What the end of the program waits for.
constexpr Duration grace{5'000};

/// The servers of providers that file sent mail by themselves, by the ends of their names.
constexpr std::array<std::string_view, 3> filingServers{"gmail.com", "office365.com", "outlook.com"};

std::string troubleOf(const OutboxItem& item) {
    return "sentcopy." + item.id.text();
}

}

bool filesSentMail(const MailAccount& account) {
    if (account.provider == MailProvider::google || account.provider == MailProvider::microsoft) return true;
    const std::string host = text::lowered(account.outgoing.host);
    return std::ranges::any_of(filingServers, [&host](std::string_view name) {
        return host == name || host.ends_with("." + std::string(name));
    });
}

bool isConnectionFailure(const std::exception_ptr& failure) {
    try {
        std::rethrow_exception(failure);
    } catch (const SMTPError& error) {
        return error.kind() == SMTPError::Kind::connection;
    } catch (const IMAPError& error) {
        return error.kind() == IMAPError::Kind::connection || error.kind() == IMAPError::Kind::disconnected;
    } catch (const MailConnectionError&) {
        return true;
    } catch (...) {
        return false;
    }
}

OutboxFiling::OutboxFiling(MailStore& mail, const OutboxFiles& files, Executor fileLane, std::function<void()> onTried)
    : mail_(mail),
      environment_(mail.environment()),
      files_(files),
      fileLane_(std::move(fileLane)),
      onTried_(std::move(onTried)),
      added_(environment_.executors.main),
      tried_(environment_.executors.main) {}

void OutboxFiling::add(OutboxItemPointer item, Ending ending, std::shared_ptr<const Bytes> message) {
    entries_.push_back(std::make_shared<Entry>(std::move(item), ending, std::move(message)));
    added_.raise();
    if (std::exchange(isRunning_, true) || isStopping_) return;
    worker_ = Task(environment_.executors.main, [this] { return run(); });
}

bool OutboxFiling::isBusy() const {
    return std::ranges::any_of(entries_, [](const auto& entry) { return !entry->isTried; });
}

Async<void> OutboxFiling::run() {
    while (!entries_.empty()) {
        added_.lower();
        co_await pass();
        if (!entries_.empty()) co_await within(*environment_.clock, retryInterval, [this] { return added_.wait(); });
    }
    isRunning_ = false;
}

Async<void> OutboxFiling::pass() {
    std::set<UUID> outOfReach;
    const auto entries = entries_;
    for (const auto& entry : entries) {
        std::exception_ptr failure;
        const bool isLeftOut = outOfReach.contains(entry->item->accountID) || !isDue(*entry);
        if (!isLeftOut) failure = co_await tryFiling(*entry);
        if (failure && isCancellation(failure)) std::rethrow_exception(failure);
        if (failure) log("Mail").error("After a send: {}", pub(sentenceOf(failure)));
        if (failure && isConnectionFailure(failure)) {
            outOfReach.insert(entry->item->accountID);
        } else if (failure && lacksCopy(*entry)) {
            tellRefusal(*entry, failure);
        } else if (!isLeftOut) {
            environment_.troubles.settle(troubleOf(*entry->item));
            co_await forget(*entry);
            std::erase(entries_, entry);
        }
        entry->isTried = true;
        tried_.raise();
        onTried_();
    }
}

bool OutboxFiling::isDue(const Entry& entry) const {
    return !entry.notBefore || *entry.notBefore <= environment_.clock->now();
}

/// It was sent, and no copy of it is among the sent mail.
bool OutboxFiling::lacksCopy(const Entry& entry) const {
    const auto account = environment_.account(entry.item->accountID);
    return entry.ending == Ending::sent && account && !filesSentMail(*account) && !entry.isCopied;
}

/// The message is in nobody's hands but the recipients' and ours: it stays until the server takes it.
void OutboxFiling::tellRefusal(Entry& entry, const std::exception_ptr& failure) {
    entry.notBefore = environment_.clock->now() + refusedInterval;
    const auto account = environment_.account(entry.item->accountID);
    environment_.troubles.add(
        troubleOf(*entry.item), entry.item->accountID,
        tr("“{}” was sent, but the server of {} did not take the copy for the sent mail. The copy "
           "is kept here, and offered again every hour. {}",
           collapsedWhiteSpace(entry.item->subject), account ? account->email : "", sentenceOf(failure)));
}

/// Gives what failed. Files of an account that is gone stay as they are.
Async<std::exception_ptr> OutboxFiling::tryFiling(Entry& entry) {
    const auto account = environment_.account(entry.item->accountID);
    std::exception_ptr failure;
    try {
        if (account) co_await file(*account, entry);
    } catch (...) {
        failure = std::current_exception();
    }
    co_return failure;
}

/// Each step is tried, whatever became of those before. Throws the failure of one, if of any that the server was out of
/// reach, since all are to be tried again then.
Async<void> OutboxFiling::file(const MailAccount& account, Entry& entry) {
    const OutboxItem& item = *entry.item;
    std::exception_ptr failure;
    const auto attempt = [&failure](auto&& step) -> Async<void> {
        std::exception_ptr own;
        try {
            co_await step();
        } catch (...) {
            own = std::current_exception();
        }
        if (own && isCancellation(own)) std::rethrow_exception(own);
        if (own && !(failure && isConnectionFailure(failure))) failure = own;
    };
    if (lacksCopy(entry)) {
        auto copy = [&]() -> Async<void> {
            const auto message = co_await messageOf(entry);
            if (message) co_await mail_.filing().fileSent(account, item.messageID, *message);
            entry.isCopied = true;
        };
        co_await attempt(copy);
    }
    if (item.hasSavedDraft) {
        auto clear = [&] { return mail_.filing().deleteDraft(account, item.messageID); };
        co_await attempt(clear);
    }
    if (entry.ending == Ending::sent && item.answering) {
        auto mark = [&] { return markAnswered(item); };
        co_await attempt(mark);
    }
    if (failure) std::rethrow_exception(failure);
}

/// The answer may have been written from another account than the one that was written to, and what it answers may have
/// been moved since.
Async<void> OutboxFiling::markAnswered(const OutboxItem& item) {
    const auto answered = environment_.context.messages.find(*item.answering);
    const auto messageID = answered ? answered->messageID : item.inReplyTo;
    const auto asked = environment_.account(answered ? answered->accountID : item.accountID);
    if (!asked) co_return;
    if (messageID)
        co_await mail_.filing().markAnswered(*asked, *messageID);
    else if (answered)
        co_await mail_.filing().markAnswered(*asked, *answered);
}

Async<std::shared_ptr<const Bytes>> OutboxFiling::messageOf(const Entry& entry) const {
    if (entry.message) co_return entry.message;
    auto kept = co_await callOn(fileLane_, [&] { return files_.message(entry.item->id); });
    if (!kept) {
        log("Mail").error("The bytes of a message that was sent are gone.");
        co_return nullptr;
    }
    co_return std::make_shared<const Bytes>(*std::move(kept));
}

Async<void> OutboxFiling::forget(const Entry& entry) const {
    if (entry.ending == Ending::discarded || !environment_.account(entry.item->accountID)) co_return;
    std::exception_ptr failure;
    try {
        co_await callOn(fileLane_, [&] { files_.removeSent(entry.item->id); });
    } catch (const FileError&) {
        failure = std::current_exception();
    }
    // It would be filed once more, in the place of the same.
    if (failure) log("Mail").error("After a send: {}", pub(sentenceOf(failure)));
}

Async<void> OutboxFiling::untilTried() {
    while (isBusy()) {
        tried_.lower();
        co_await tried_.wait();
    }
}

Async<void> OutboxFiling::stop() {
    isStopping_ = true;
    co_await within(*environment_.clock, grace, [this] { return untilTried(); });
    worker_.cancel();
    co_await worker_.finished();
}

}
