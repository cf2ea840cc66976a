#pragma once

#include "terminal/Console.h"

#include <string>
#include <vector>

namespace velmo {

/// The application, until the person quits it (SIGTERM, SIGINT). There is one of each installation: a second start
/// tells the running one, and ends. `arguments` are those of the process, its own name included. Gives the exit code: 0
/// ended in good order, 1 failed with a sentence on standard error, 2 wrong usage.
int runMailProgram(const std::vector<std::string>& arguments, Console& console);

}
