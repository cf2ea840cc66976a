#pragma once

#include "terminal/Session.h"

namespace CLI {
class App;
}

namespace velmo {

/// What is on its way out. Parsing sets `body` when one of these commands was asked for.
void addOutboxCommands(CLI::App& program, CommandBody& body);

/// The outbox of the open mail, with what it holds. Throws CommandError while the sample mail is shown.
Async<Outbox*> openOutbox(Session& session);

/// The number that the word is. Throws CommandError.
UUID outboxNumber(const std::string& word);

/// Takes a message back and stores it as a draft; where that fails, it is put back to wait for the person, and this
/// throws why. False when it is gone or being sent.
Async<bool> takeBackAsDraft(Session& session, UUID id);

/// The same for one that was taken back already, as `item`.
Async<void> storeTakenAsDraft(Session& session, const OutboxItem& item);

}
