#pragma once

#include "terminal/Session.h"

namespace CLI {
class App;
}

namespace velmo {

/// `read`. Parsing sets `body` when it was asked for.
void addReadCommand(CLI::App& program, CommandBody& body);

}
