#pragma once

#include "terminal/Session.h"

namespace CLI {
class App;
}

namespace velmo {

/// `mailboxes`, `list`, `search` and `labels`. Parsing sets `body` when one of them was asked for.
void addListCommands(CLI::App& program, CommandBody& body);

}
