#pragma once

#include "terminal/Session.h"

namespace CLI {
class App;
}

namespace velmo {

/// What is done with the mail of the accounts. Parsing sets `body` when one of these commands was asked for.
void addMailCommands(CLI::App& program, CommandBody& body);

}
