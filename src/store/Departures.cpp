#include "store/Departures.h"

#include "base/UserError.h"
#include "platform/Log.h"
#include "store/ActionTroubles.h"

namespace velmo {

void Departures::begin(const std::vector<Departure>& departures) {
    for (const auto& departure : departures) {
        const UUID accountID = departure.group.mailbox.accountID;
        lanes_.add(accountID, [weak = weak_from_this(), departure] { return run(weak, departure); });
    }
}

Async<void> Departures::run(std::weak_ptr<Departures> weak, Departure departure) {
    std::shared_ptr<SyncEngine> engine;
    if (const auto self = weak.lock()) engine = self->engines_.engineOf(departure.group.mailbox.accountID);
    CommandOutcome outcome = CommandOutcome::cancelled();
    if (engine) {
        auto command = departure.destination ? moveOnServer(engine, departure.group, *departure.destination)
                                             : deleteOnServer(engine, departure.group);
        outcome = co_await std::move(command);
    }
    const auto self = weak.lock();
    if (!self) co_return;
    if (!outcome.failure) co_await self->removeRecords(departure, outcome);
    self->ended(departure, outcome);
}

/// What only this machine knows of them follows them. A database that refuses is logged; the next sync puts it right.
Async<void> Departures::removeRecords(const Departure& departure, const CommandOutcome& outcome) {
    LeftMessages left;
    left.mailbox = departure.group.mailbox;
    left.uidValidity = departure.group.uidValidity;
    left.ids = departure.group.ids;
    left.uids = departure.group.uids;
    left.destination = departure.destination;
    left.targetUIDValidity = outcome.copied.uidValidity;
    left.targetUIDs = outcome.copied.targets;
    left.targetFrom = outcome.firstArrived;
    SyncWriter writer = environment_.writer;
    try {
        co_await writes_.finished();
        co_await writer.removeLeft(std::move(left));
    } catch (const sqlite::SQLiteError& error) {
        log("Mail").error("Couldn't save mail cache: {}", pub(error.what()));
    }
}

namespace {

ActionTroubles::Action actionOf(const Departure& departure) {
    return departure.destination ? ActionTroubles::Action::moved : ActionTroubles::Action::deleted;
}

}

void Departures::ended(const Departure& departure, const CommandOutcome& outcome) {
    if (outcome.failure) {
        failed(departure, outcome);
        return;
    }
    ActionTroubles(environment_).settle(actionOf(departure), departure.group);
    leaving_.haveLeft(departure.group);
    if (!departure.destination) return;
    syncs_.add({departure.group.mailbox.accountID, *departure.destination});
}

void Departures::failed(const Departure& departure, const CommandOutcome& outcome) {
    const auto& group = departure.group;
    leaving_.putBack(std::set(group.ids.begin(), group.ids.end()));
    if (isCancellation(outcome.failure)) return;
    ActionTroubles(environment_).add(actionOf(departure), group, outcome);
    status_.showError(sentenceOf(outcome.failure));
    if (!outcome.isUncertain) return;
    // Nobody knows where the messages are now but the server.
    syncs_.add(group.mailbox);
    if (departure.destination) syncs_.add({group.mailbox.accountID, *departure.destination});
}

}
