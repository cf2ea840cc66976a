#pragma once

#include "terminal/Session.h"

namespace CLI {
class App;
}

namespace velmo {

/// What is done to messages: `archive`, `junk`, `trash`, `inbox`, `delete`, `move`, `flag`, `unflag`, `seen`, `unseen`,
/// `label`, `unlabel` and `undo`. Parsing sets `body` when one of them was asked for.
void addActionCommands(CLI::App& program, CommandBody& body);

}
