#include "compose/Outbox.h"

#include "base/Localisation.h"
#include "base/UserError.h"
#include "compose/WrittenMessage.h"
#include "platform/FileError.h"
#include "platform/Log.h"

#include <algorithm>
#include <array>
#include <span>
#include <utility>

namespace velmo {

namespace {

constexpr std::chrono::seconds defaultUndoWindow{10};
constexpr Duration retryInterval{60'000};
/// After an end that left it open whether the message arrived: each attempt may deliver it once more.
constexpr std::array uncertainWaits{std::chrono::minutes(1), std::chrono::minutes(10), std::chrono::minutes(60)};
/// What asks senders to come back later wants to be left alone for some minutes.
constexpr std::array temporaryWaits{std::chrono::minutes(5), std::chrono::minutes(15), std::chrono::minutes(60)};
/// From when on a server that is out of reach is a matter for the person.
constexpr std::chrono::hours longOutOfReach{1};
/// A longer wait looks at the clock again, which the person may have set meanwhile.
constexpr Duration longestWait{60'000};
constexpr std::chrono::seconds failureLifetime{12};
/// Servers refuse more than a few connections at once.
constexpr std::ptrdiff_t sendsAtOnce = 4;

}

namespace {

std::string troubleOf(const UUID& id) {
    return "send." + id.text();
}

std::string shownSubject(const OutboxItem& item) {
    return item.subject.empty() ? tr("(No Subject)") : item.subject;
}

/// What is special about a failed attempt: nobody knows whether the message arrived, or it may be taken later.
enum class Doubt { none, arrived, refusedForNow };

Doubt doubtOf(const std::exception_ptr& failure) {
    try {
        std::rethrow_exception(failure);
    } catch (const SMTPError& error) {
        if (error.isUncertain()) return Doubt::arrived;
        if (error.isTemporary()) return Doubt::refusedForNow;
    } catch (...) {
        return Doubt::none;
    }
    return Doubt::none;
}

std::span<const std::chrono::minutes> waitsAfter(Doubt doubt) {
    return doubt == Doubt::arrived ? std::span(uncertainWaits) : std::span(temporaryWaits);
}

}

std::chrono::seconds Outbox::undoWindow(const Settings& settings) {
    const auto seconds = settings.integer("undoSendSeconds");
    if (!seconds || *seconds < 0) return defaultUndoWindow;
    return std::chrono::seconds{std::min<std::int64_t>(*seconds, 3600)};
}

/// What goes over the wire.
struct Outbox::Built {
    Built(SMTPEnvelope envelope_, std::shared_ptr<const Bytes> message_, bool isKept_)
        : envelope(std::move(envelope_)), message(std::move(message_)), isKept(isKept_) {}

    SMTPEnvelope envelope;
    std::shared_ptr<const Bytes> message;
    bool isKept; ///< in the files, until it is filed
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
      idle_(environment_.executors.main),
      filing_(mail_, files_, fileLane_, [this] { idle_.raise(); }) {
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
        for (auto& item : found.waiting) {
            const auto isIt = [&item](const auto& held) { return held->id == item.id; };
            if (std::ranges::none_of(all, isIt)) all.push_back(std::make_shared<const OutboxItem>(std::move(item)));
        }
    });
    unfiled_ = std::move(found.sent);
    try {
        for (const auto& item : found.taken) co_await recover(item);
    } catch (const FileError& error) {
        trouble = error.sentence();
    }
    for (const auto& file : found.setAside)
        trouble = tr("A message in the outbox can't be read. It is kept in {}.", file.string());
    if (!trouble.empty()) {
        log("Mail").error("The outbox could not be read whole: {}", pub(trouble));
        showBanner(std::move(trouble), true, {});
    }
    changed_.raise();
}

/// One that was taken back comes back, unless the person has queued it again.
Async<void> Outbox::recover(const OutboxItem& taken) {
    const auto isSame = [&taken](const auto& held) { return held->messageID == taken.messageID; };
    if (std::ranges::any_of(*items, isSame)) {
        co_await release(taken.id);
        co_return;
    }
    co_await putBack(taken);
    mail_.troubles().add(
        troubleOf(taken.id), taken.accountID,
        tr("“{}” was neither sent nor saved as a draft. It waits in the outbox.", shownSubject(taken)));
}

Async<void> Outbox::stop() {
    if (std::exchange(isStopping_, true)) co_return;
    timer_.cancel();
    loading_.cancel();
    retrying_.cancel();
    for (auto& [id, task] : sends_) task.cancel();
    for (auto& [id, task] : sends_) co_await task.finished();
    co_await timer_.finished();
    co_await loading_.finished();
    co_await retrying_.finished();
    co_await filing_.stop();
}

Async<void> Outbox::finished() {
    const auto isBusy = [this] {
        return !sending->empty() || filing_.isBusy() ||
               std::ranges::any_of(*items, [this](const auto& item) { return isDue(*item); });
    };
    while (isBusy()) {
        idle_.lower();
        co_await idle_.wait();
    }
}

bool Outbox::hasUnsent() const {
    return std::ranges::any_of(*items, [this](const auto& item) {
        return !item->isScheduled && !item->hasFailed() && environment_.account(item->accountID).has_value();
    });
}

Async<void> Outbox::flush() {
    std::set<UUID> awaited;
    const auto waiting = *items;
    for (const auto& item : waiting) {
        if (item->isScheduled || item->hasFailed() || item->failure) continue;
        awaited.insert(item->id);
        if (isDue(*item) || sending->contains(item->id)) continue;
        OutboxItem due = *item;
        due.sendAt = environment_.clock->now();
        co_await write(due);
        if (this->item(due.id) == item) put(std::make_shared<const OutboxItem>(std::move(due)));
    }
    changed_.raise();
    const auto isUnderWay = [&] {
        return std::ranges::any_of(awaited, [this](const UUID& id) {
            const auto held = item(id);
            return sending->contains(id) || (held && isDue(*held));
        });
    };
    while (isUnderWay()) {
        idle_.lower();
        co_await idle_.wait();
    }
}

void Outbox::accountChanged(const UUID& accountID) {
    const std::string refused = SMTPError::authenticationFailed().sentence();
    std::vector<UUID> ids;
    for (const auto& item : *items)
        if (item->accountID == accountID && item->hasFailed() && item->failure == refused) ids.push_back(item->id);
    if (ids.empty() || isStopping_) return;
    retrying_ = Task(environment_.executors.main, [this, ids] { return retryAll(ids); });
}

Async<void> Outbox::retryAll(std::vector<UUID> ids) {
    for (const auto& id : ids) {
        try {
            co_await retry(id);
        } catch (const FileError& error) {
            log("Mail").error("The outbox could not be written: {}", pub(error.sentence()));
        }
    }
}

// --- Time --------------------------------------------------------------------------------------------------------

Async<void> Outbox::run() {
    co_await loading_.finished();
    for (auto& item : std::exchange(unfiled_, {}))
        filing_.add(std::make_shared<const OutboxItem>(std::move(item)), OutboxFiling::Ending::sent);
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
    std::shared_ptr<const Bytes> message; // what the files do not have
    std::exception_ptr failure;
    try {
        const auto account = environment_.account(item->accountID);
        if (!account) throw Cancelled();
        Built wire = co_await built(*account, *item);
        if (!wire.isKept) message = wire.message;
        MailCredential credential = co_await environment_.accounts.credential(*account);
        co_await transport_(*account, std::move(credential), std::move(wire.envelope), wire.message);
    } catch (...) {
        failure = std::current_exception();
    }
    // What has happened is noted, also when the program ends.
    co_await ignoreCancellation();
    if (!failure)
        co_await sent(item, std::move(message));
    else if (!isCancellation(failure))
        co_await failed(*item, failure);
    ended(item->id);
}

/// The bytes are made once: a message that goes again, and may be there already, is the same to the last of them.
Async<Outbox::Built> Outbox::built(const MailAccount& account, const OutboxItem& item) const {
    const Date now = environment_.clock->now();
    OutgoingMessage message(IMAPAddress{{}, account.email}, now);
    message.to = item.to;
    message.cc = item.cc;
    message.bcc = item.bcc;
    SMTPEnvelope envelope(account.email, message.recipients());
    std::optional<Bytes> bytes = co_await callOn(fileLane_, [&] { return files_.message(item.id); });
    if (bytes) co_return Built(std::move(envelope), std::make_shared<const Bytes>(*std::move(bytes)), true);
    bytes = co_await callOn(environment_.executors.background,
                            [&] { return writtenMessage(item, account, settings_, now).build(); });
    const bool isKept = co_await keeps(item, *bytes);
    co_return Built(std::move(envelope), std::make_shared<const Bytes>(*std::move(bytes)), isKept);
}

/// Keeps what goes out until its copy is filed. False when it stays in memory alone, which is no reason not to send.
Async<bool> Outbox::keeps(const OutboxItem& item, const Bytes& message) const {
    if (!files_.keepsAnything()) co_return false;
    try {
        co_await callOn(fileLane_, [&] { files_.keepMessage(item.id, message); });
        co_return true;
    } catch (const FileError& error) {
        log("Mail").error("A message could not be kept beside the outbox: {}", pub(error.sentence()));
    }
    co_return false;
}

/// From here on it is not sent again, whatever happens.
Async<void> Outbox::sent(OutboxItemPointer item, std::shared_ptr<const Bytes> message) {
    std::exception_ptr failure;
    try {
        co_await callOn(fileLane_, [&] { files_.noteSent(item->id); });
    } catch (const FileError&) {
        failure = std::current_exception();
    }
    erase(item->id);
    forgetFailure(item->id);
    if (failure) {
        // It would be sent again at the next start.
        log("Mail").error("A sent message could not be removed from the outbox: {}", pub(sentenceOf(failure)));
        showBanner(sentenceOf(failure), true, {});
    } else if (item->isScheduled) {
        showBanner(tr("Scheduled message sent"), false, {});
    }
    filing_.add(std::move(item), OutboxFiling::Ending::sent, std::move(message));
}

/// How long to wait until it is tried again; absent when it is the person's.
std::optional<Duration> Outbox::nextWait(OutboxItem& item, const std::exception_ptr& failure) const {
    item.failure = sentenceOf(failure);
    const Doubt doubt = doubtOf(failure);
    if (doubt != Doubt::none) {
        const auto waits = waitsAfter(doubt);
        const auto tried = static_cast<std::size_t>(item.tries++);
        const bool isOver = tried >= waits.size();
        if (doubt == Doubt::arrived)
            item.failure = isOver ? tr("The server never said whether it took the message, which may have arrived, "
                                       "perhaps more than once. Ask whoever it is for before you send it again.")
                                  : tr("The server did not say whether it took the message. It may have arrived.");
        if (isOver) return std::nullopt;
        return waits[tried];
    }
    const bool mayPass = !*network_.isOnline || isConnectionFailure(failure);
    return mayPass ? std::optional(retryInterval) : std::nullopt;
}

Async<void> Outbox::failed(const OutboxItem& item, std::exception_ptr failure) {
    OutboxItem changed = item;
    const auto wait = nextWait(changed, failure);
    changed.sendAt = wait ? environment_.clock->now() + *wait : OutboxItem::distantFuture;
    try {
        co_await write(changed);
        // The person may change what goes into it before it is tried again.
        if (!wait) co_await callOn(fileLane_, [&] { files_.dropMessage(item.id); });
    } catch (const FileError& error) {
        log("Mail").error("The outbox could not be written: {}", pub(error.sentence()));
    }
    tellFailure(changed, doubtOf(failure) != Doubt::none);
    put(std::make_shared<const OutboxItem>(std::move(changed)));
}

/// A server that can't be reached for a moment is no news.
void Outbox::tellFailure(const OutboxItem& item, bool isDoubtful) {
    const Date now = environment_.clock->now();
    const Date since = failingSince_.try_emplace(item.id, now).first->second;
    const std::string subject = shownSubject(item);
    std::string sentence = tr("Couldn't send “{}”: {}", subject, *item.failure);
    if (item.hasFailed())
        showBanner(sentence, true, failureLifetime);
    else if (isDoubtful || now - since >= longOutOfReach)
        sentence = tr("“{}” has not been sent yet, and is tried again: {}", subject, *item.failure);
    else
        return;
    mail_.troubles().add(troubleOf(item.id), item.accountID, std::move(sentence));
}

/// It is sent, or in the person's hands.
void Outbox::forgetFailure(const UUID& id) {
    failingSince_.erase(id);
    mail_.troubles().settle(troubleOf(id));
}

void Outbox::ended(const UUID& id) {
    sending.update([&id](auto& all) { all.erase(id); });
    changed_.raise();
    idle_.raise();
}

// --- What a person does ------------------------------------------------------------------------------------------

Async<void> Outbox::enqueue(OutboxItem item) {
    const auto kept = std::make_shared<const OutboxItem>(std::move(item));
    co_await uninterrupted([&] { return write(*kept); });
    put(kept);
    changed_.raise();
}

/// The person wants it back, or gone: it leaves the list, unless the disk refuses.
Async<void> Outbox::take(OutboxItemPointer item, FileStep step) {
    const UUID id = item->id;
    erase(id);
    std::exception_ptr failure;
    try {
        co_await uninterrupted([&] { return callOn(fileLane_, [&] { (files_.*step)(id); }); });
    } catch (const FileError&) {
        failure = std::current_exception();
    }
    if (!failure) {
        forgetFailure(id);
        co_return;
    }
    put(std::move(item));
    changed_.raise();
    std::rethrow_exception(failure);
}

Async<bool> Outbox::takeBack(UUID id) {
    const auto held = item(id);
    if (!held || sending->contains(id)) co_return false;
    co_await take(held, &OutboxFiles::noteTaken);
    handedOff_[id] = held;
    co_return true;
}

OutboxItemPointer Outbox::claim(const UUID& id) {
    auto found = handedOff_.extract(id);
    return found ? std::move(found.mapped()) : nullptr;
}

Async<void> Outbox::putBack(OutboxItem taken) {
    taken.sendAt = OutboxItem::distantFuture;
    taken.hasSavedDraft = true; // it may have been saved before the end came
    taken.failure = tr("It was neither sent nor saved as a draft.");
    co_await enqueue(std::move(taken));
}

Async<void> Outbox::keep(OutboxItem item) {
    co_await callOn(fileLane_, [&] { files_.writeTaken(item); });
}

Async<void> Outbox::release(UUID id) {
    co_await callOn(fileLane_, [&] { files_.removeTaken(id); });
}

Async<bool> Outbox::retry(UUID id) {
    const auto held = item(id);
    if (!held || sending->contains(id)) co_return false;
    OutboxItem changed = *held;
    changed.sendAt = environment_.clock->now();
    changed.failure.reset();
    changed.tries = 0;
    co_await write(changed);
    // Meanwhile its time may have come, or the person may have taken it back.
    if (item(id) != held || sending->contains(id)) co_return false;
    forgetFailure(id);
    put(std::make_shared<const OutboxItem>(std::move(changed)));
    changed_.raise();
    co_return true;
}

Async<bool> Outbox::discard(UUID id) {
    const auto held = item(id);
    if (!held || sending->contains(id)) co_return false;
    co_await take(held, &OutboxFiles::remove);
    if (held->hasSavedDraft) filing_.add(held, OutboxFiling::Ending::discarded);
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

void Outbox::showBanner(std::string text, bool isError, std::optional<std::chrono::seconds> lifetime) {
    Banner banner;
    banner.id = UUID::random();
    banner.text = std::move(text);
    banner.isError = isError;
    banner.lifetime = lifetime;
    mail_.status().banner = banner;
}

}
