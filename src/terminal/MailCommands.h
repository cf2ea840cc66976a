#pragma once

#include "terminal/Session.h"

namespace CLI {
class App;
}

namespace velmo {

/// `sync`, `mailboxes` and `list`. Parsing sets `body` when one of them was asked for.
void addMailCommands(CLI::App& program, CommandBody& body);

}
