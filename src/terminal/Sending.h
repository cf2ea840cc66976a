#pragma once

#include "compose/ComposeModel.h"
#include "terminal/Session.h"

#include <optional>

namespace velmo {

/// Stores the message as a draft, and says so. Throws CommandError when it is blank, and what the server refuses.
Async<void> saveAsDraft(Session& session, ComposeModel& model);

/// Puts the message into the outbox, for now or for a time. Throws CommandError.
Async<void> queue(ComposeModel& model, std::optional<Date> at);

/// Says that the message is queued. A process that ends with the command first waits until the message is gone, and
/// throws CommandError when it fails; one that is interrupted meanwhile takes it back as a draft.
Async<void> seeOff(Session& session, const ComposeModel& model, std::optional<Date> at);

}
