#pragma once

#include "terminal/Session.h"

namespace CLI {
class App;
}

namespace velmo {

/// `edit` of the command `outbox`. Parsing sets `body` when it was asked for.
void addOutboxEdit(CLI::App& outbox, CommandBody& body);

}
