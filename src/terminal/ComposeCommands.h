#pragma once

#include "terminal/Session.h"

namespace CLI {
class App;
}

namespace velmo {

/// Writing mail: new messages, answers, drafts. Parsing sets `body` when one of these commands was asked for.
void addComposeCommands(CLI::App& program, CommandBody& body);

}
