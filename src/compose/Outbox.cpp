#include "compose/Outbox.h"

#include "base/Localisation.h"
#include "base/Text.h"
#include "base/UserError.h"
#include "compose/WrittenMessage.h"
#include "platform/FileError.h"
#include "platform/Log.h"

#include <algorithm>
#include <array>
#include <utility>

namespace velmo {

namespace {

constexpr std::chrono::seconds defaultUndoWindow{10};
constexpr Duration retryInterval{60'000};
/// A longer wait looks at the clock again, which the person may have set meanwhile.
constexpr Duration longestWait{60'000};
constexpr std::chrono::seconds failureLifetime{12};
/// Servers refuse more than a few connections at once.
constexpr std::ptrdiff_t sendsAtOnce = 4;
/// What the end of the program waits for copies of what was sent.
constexpr Duration filingGrace{5'000};

/// The servers of providers that file sent mail by themselves, by the ends of their names.
constexpr std::array<std::string_view, 3> filingServers{"gmail.com", "office365.com", "outlook.com"};

/// True for failures of the way to the server, not of what it was asked.
bool isConnectionFailure(const std::exception_ptr& failure) {
    try {
        std::rethrow_exception(failure);
    } catch (const SMTPError& error) {
        return error.kind() == SMTPError::Kind::connection;
    } catch (const MailConnectionError&) {
        return true;
    } catch (...) {
        return false;
    }
}

}

bool filesSentMail(const MailAccount& account) {
    if (account.provider == MailProvider::google || account.provider == MailProvider::microsoft) return true;
    const std::string host = text::lowered(account.outgoing.host);
    return std::ranges::any_of(filingServers, [&host](std::string_view name) {
        return host == name || host.ends_with("." + std::string(name));
    });
}

std::chrono::seconds Outbox::undoWindow(const Settings& settings) {
    const auto seconds = settings.integer("undoSendSeconds");
    if (!seconds || *seconds < 0) return defaultUndoWindow;
    return std::chrono::seconds{std::min<std::int64_t>(*seconds, 3600)};
}

/// What goes over the wire.
struct Outbox::Built {
    Built(SMTPEnvelope envelope_, std::shared_ptr<const Bytes> message_)
        : envelope(std::move(envelope_)), message(std::move(message_)) {}

    SMTPEnvelope envelope;
    std::shared_ptr<const Bytes> message;
};

Outbox::Outbox(Parts parts)
    : mail_(parts.mail),
      environment_(parts.mail.environment()),
      settings_(parts.settings),
      network_(parts.network),
      transport_(std::move(parts.transport)),
      files_(std::move(parts.folder)),
      fileLane_(makeStrand(environment_.executors.background)),
      changed_(environment_.executors.main),
      idle_(environment_.executors.main) {
    if (!transport_)
        transport_ = [this](MailAccount account, MailCredential credential, SMTPEnvelope envelope,
                            std::shared_ptr<const Bytes> message) {
            return sendBySMTP(environment_.executors.io, *environment_.clock, account.outgoing, std::move(credential),
                              std::move(envelope), std::move(message));
        };
}

Outbox::~Outbox() = default;

// --- Start and stop ----------------------------------------------------------------------------------------------

void Outbox::start() {
    if (isStopping_ || hasStarted_) return;
    hasStarted_ = true;
    beginLoading();
    timer_ = Task(environment_.executors.main, [this] { return run(); });
}

void Outbox::beginLoading() {
    if (std::exchange(isLoading_, true)) return;
    loading_ = Task(environment_.executors.main, [this] { return load(); });
}

Async<void> Outbox::loaded() {
    beginLoading();
    co_await loading_.finished();
}

Async<void> Outbox::load() {
    OutboxFiles::Found found;
    std::string trouble;
    try {
        found = co_await callOn(fileLane_, [this] { return files_.load(); });
    } catch (const FileError& error) {
        trouble = error.sentence();
    }
    items.update([&](auto& all) {
        for (auto& item : found.items) {
            const auto isIt = [&item](const auto& held) { return held->id == item.id; };
            if (std::ranges::none_of(all, isIt)) all.push_back(std::make_shared<const OutboxItem>(std::move(item)));
        }
    });
    for (const auto& file : found.setAside)
        trouble = tr("A message in the outbox can't be read. It is kept in {}.", file.string());
    if (!trouble.empty()) {
        log("Mail").error("The outbox could not be read whole: {}", pub(trouble));
        showBanner(std::move(trouble), true, {});
    }
    changed_.raise();
}

Async<void> Outbox::stop() {
    if (std::exchange(isStopping_, true)) co_return;
    timer_.cancel();
    loading_.cancel();
    for (auto& [id, task] : sends_) task.cancel();
    for (auto& [id, task] : sends_) co_await task.finished();
    co_await timer_.finished();
    co_await loading_.finished();
    const auto filed = co_await within(*environment_.clock, filingGrace, [this]() -> Async<void> {
        for (Task& task : afterwards_) co_await task.finished();
    });
    if (filed) co_return;
    for (Task& task : afterwards_) task.cancel();
    for (Task& task : afterwards_) co_await task.finished();
}

Async<void> Outbox::finished() {
    const auto isBusy = [this] {
        return !sending->empty() || unfinished_ > 0 ||
               std::ranges::any_of(*items, [this](const auto& item) { return isDue(*item); });
    };
    while (isBusy()) {
        idle_.lower();
        co_await idle_.wait();
    }
}

// --- Time --------------------------------------------------------------------------------------------------------

Async<void> Outbox::run() {
    co_await loading_.finished();
    while (true) {
        changed_.lower();
        sendDue();
        const auto wait = untilNext();
        if (wait)
            co_await within(*environment_.clock, *wait, [this] { return changed_.wait(); });
        else
            co_await changed_.wait();
    }
}

/// Not being sent, and of an account that is there.
bool Outbox::isDue(const OutboxItem& item) const {
    return item.sendAt <= environment_.clock->now() && !sending->contains(item.id) &&
           environment_.account(item.accountID).has_value();
}

void Outbox::sendDue() {
    if (isStopping_) return;
    std::erase_if(sends_, [](const auto& entry) { return entry.second.isFinished(); });
    std::map<UUID, std::ptrdiff_t> busy;
    for (const auto& item : *items) busy[item->accountID] += sending->contains(item->id) ? 1 : 0;
    std::vector<OutboxItemPointer> due;
    for (const auto& item : *items) {
        if (isDue(*item) && busy[item->accountID]++ < sendsAtOnce) due.push_back(item);
    }
    sending.update([&due](auto& all) {
        for (const auto& item : due) all.insert(item->id);
    });
    for (const auto& item : due)
        sends_.insert_or_assign(item->id, Task(environment_.executors.main, [this, item] { return send(item); }));
}

/// Absent when nothing waits for its time. The end of a send is a change of its own.
std::optional<Duration> Outbox::untilNext() const {
    std::optional<Date> next;
    for (const auto& item : *items) {
        const bool waits = item->sendAt < OutboxItem::distantFuture && !sending->contains(item->id) &&
                           environment_.account(item->accountID) && !isDue(*item);
        if (waits && (!next || item->sendAt < *next)) next = item->sendAt;
    }
    if (!next) return std::nullopt;
    return std::min(longestWait, *next - environment_.clock->now());
}

// --- Sending -----------------------------------------------------------------------------------------------------

Async<void> Outbox::send(OutboxItemPointer item) {
    const auto account = environment_.account(item->accountID);
    std::shared_ptr<const Bytes> message;
    std::exception_ptr failure;
    try {
        if (!account) throw Cancelled();
        Built wire = co_await built(*account, *item);
        message = wire.message;
        MailCredential credential = co_await environment_.accounts.credential(*account);
        co_await transport_(*account, std::move(credential), std::move(wire.envelope), message);
    } catch (...) {
        failure = std::current_exception();
    }
    // What has happened is noted, also when the program ends.
    co_await ignoreCancellation();
    if (!failure)
        co_await sent(item, *account, std::move(message));
    else if (!isCancellation(failure))
        co_await failed(*item, failure);
    ended(item->id);
}

Async<Outbox::Built> Outbox::built(const MailAccount& account, const OutboxItem& item) const {
    const Date now = environment_.clock->now();
    co_return co_await callOn(environment_.executors.background, [&] {
        const OutgoingMessage message = writtenMessage(item, account, settings_, now);
        return Built(SMTPEnvelope(account.email, message.recipients()), std::make_shared<const Bytes>(message.build()));
    });
}

Async<void> Outbox::sent(OutboxItemPointer item, MailAccount account, std::shared_ptr<const Bytes> message) {
    std::exception_ptr failure;
    try {
        co_await removeFile(item->id);
    } catch (const FileError&) {
        failure = std::current_exception();
    }
    erase(item->id);
    if (failure) {
        // It would be sent again at the next start.
        log("Mail").error("A sent message could not be removed from the outbox: {}", pub(sentenceOf(failure)));
        showBanner(sentenceOf(failure), true, {});
    } else if (item->isScheduled) {
        showBanner(tr("Scheduled message sent"), false, {});
    }
    afterwards([this, account, item, message] { return fileSent(account, item, message); });
}

Async<void> Outbox::failed(const OutboxItem& item, std::exception_ptr failure) {
    OutboxItem changed = item;
    changed.failure = sentenceOf(failure);
    const bool isFinal = *network_.isOnline && !isConnectionFailure(failure);
    changed.sendAt = isFinal ? OutboxItem::distantFuture : environment_.clock->now() + retryInterval;
    try {
        co_await write(changed);
    } catch (const FileError& error) {
        log("Mail").error("The outbox could not be written: {}", pub(error.sentence()));
    }
    if (isFinal) {
        const std::string subject = item.subject.empty() ? tr("(No Subject)") : item.subject;
        showBanner(tr("Couldn't send “{}”: {}", subject, *changed.failure), true, failureLifetime);
    }
    put(std::make_shared<const OutboxItem>(std::move(changed)));
}

void Outbox::ended(const UUID& id) {
    sending.update([&id](auto& all) { all.erase(id); });
    changed_.raise();
    idle_.raise();
}

// --- After a send ------------------------------------------------------------------------------------------------

void Outbox::afterwards(std::move_only_function<Async<void>()> body) {
    std::erase_if(afterwards_, [](const Task& task) { return task.isFinished(); });
    ++unfinished_;
    afterwards_.emplace_back(environment_.executors.main, [this, body = std::move(body)]() mutable -> Async<void> {
        std::exception_ptr failure;
        try {
            co_await body();
        } catch (...) {
            failure = std::current_exception();
        }
        --unfinished_;
        idle_.raise();
        if (failure && !isCancellation(failure)) log("Mail").error("After a send: {}", pub(sentenceOf(failure)));
    });
}

/// Each step is tried, whatever became of those before.
Async<void> Outbox::fileSent(MailAccount account, OutboxItemPointer item, std::shared_ptr<const Bytes> message) {
    std::exception_ptr failure;
    const auto attempt = [&failure](auto&& step) -> Async<void> {
        try {
            co_await step();
        } catch (...) {
            failure = std::current_exception();
        }
        if (failure && isCancellation(failure)) std::rethrow_exception(failure);
    };
    if (!filesSentMail(account)) {
        auto copy = [&] { return mail_.filing().fileSent(account, item->messageID, *message); };
        co_await attempt(copy);
    }
    if (item->hasSavedDraft) {
        auto clear = [&] { return mail_.filing().deleteDraft(account, item->messageID); };
        co_await attempt(clear);
    }
    if (item->answering) {
        if (const auto answered = environment_.context.messages.find(*item->answering))
            mail_.actions().setAnswered({*answered});
    }
    if (failure) std::rethrow_exception(failure);
}

// --- What a person does ------------------------------------------------------------------------------------------

Async<void> Outbox::enqueue(OutboxItem item) {
    const auto kept = std::make_shared<const OutboxItem>(std::move(item));
    co_await write(*kept);
    put(kept);
    changed_.raise();
}

Async<bool> Outbox::takeBack(UUID id) {
    const auto held = item(id);
    if (!held || sending->contains(id)) co_return false;
    erase(id);
    std::exception_ptr failure;
    try {
        co_await removeFile(id);
    } catch (const FileError&) {
        failure = std::current_exception();
    }
    if (failure) {
        put(held);
        changed_.raise();
        std::rethrow_exception(failure);
    }
    handedOff_[id] = held;
    co_return true;
}

OutboxItemPointer Outbox::claim(const UUID& id) {
    auto found = handedOff_.extract(id);
    return found ? std::move(found.mapped()) : nullptr;
}

Async<bool> Outbox::retry(UUID id) {
    const auto held = item(id);
    if (!held || sending->contains(id)) co_return false;
    OutboxItem changed = *held;
    changed.sendAt = environment_.clock->now();
    changed.failure.reset();
    const auto kept = std::make_shared<const OutboxItem>(std::move(changed));
    put(kept);
    co_await write(*kept);
    changed_.raise();
    co_return true;
}

Async<bool> Outbox::discard(UUID id) {
    const auto held = item(id);
    if (!held || sending->contains(id)) co_return false;
    erase(id);
    co_await removeFile(id);
    const auto account = environment_.account(held->accountID);
    if (held->hasSavedDraft && account)
        afterwards([this, account = *account, held] { return mail_.filing().deleteDraft(account, held->messageID); });
    co_return true;
}

// --- Items and files ---------------------------------------------------------------------------------------------

OutboxItemPointer Outbox::item(const UUID& id) const {
    const auto found = std::ranges::find(*items, id, [](const auto& item) { return item->id; });
    return found == items->end() ? nullptr : *found;
}

void Outbox::erase(const UUID& id) {
    items.update([&id](auto& all) { std::erase_if(all, [&id](const auto& one) { return one->id == id; }); });
}

/// In the place of the one with its ID, or at the end.
void Outbox::put(OutboxItemPointer item) {
    items.update([&item](auto& all) {
        const auto found = std::ranges::find(all, item->id, [](const auto& one) { return one->id; });
        if (found == all.end())
            all.push_back(item);
        else
            *found = item;
    });
}

Async<void> Outbox::write(const OutboxItem& item) const {
    co_await callOn(fileLane_, [this, &item] { files_.write(item); });
}

Async<void> Outbox::removeFile(UUID id) const {
    co_await callOn(fileLane_, [this, &id] { files_.remove(id); });
}

void Outbox::showBanner(std::string text, bool isError, std::optional<std::chrono::seconds> lifetime) {
    Banner banner;
    banner.id = UUID::random();
    banner.text = std::move(text);
    banner.isError = isError;
    banner.lifetime = lifetime;
    mail_.status().banner = banner;
}

}
