#pragma once

#include "terminal/Session.h"

namespace CLI {
class App;
}

namespace velmo {

/// `sync` and `older`. Parsing sets `body` when one of them was asked for.
void addSyncCommands(CLI::App& program, CommandBody& body);

}
