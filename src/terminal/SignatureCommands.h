#pragma once

#include "terminal/Session.h"

namespace CLI {
class App;
}

namespace velmo {

/// `signature show` and `signature set`. Parsing sets `body` when one of them was asked for.
void addSignatureCommands(CLI::App& program, CommandBody& body);

}
