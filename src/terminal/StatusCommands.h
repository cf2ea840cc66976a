#pragma once

#include "terminal/Session.h"

namespace CLI {
class App;
}

namespace velmo {

/// `status` and `watch`. Parsing sets `body` when one of them was asked for.
void addStatusCommands(CLI::App& program, CommandBody& body);

}
