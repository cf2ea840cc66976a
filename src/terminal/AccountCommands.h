#pragma once

#include "terminal/Session.h"

namespace CLI {
class App;
}

namespace velmo {

/// `accounts` with `add`, `name` and `remove`. Parsing sets `body` when one of them was asked for.
void addAccountCommands(CLI::App& program, CommandBody& body);

}
