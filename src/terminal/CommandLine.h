#pragma once

#include "terminal/LocalConsole.h"

#include <string>
#include <vector>

namespace velmo {

/// Runs the command that the words (without the program's name) ask for: in the application when it is running, in this
/// process otherwise. Gives the exit code: 0 done, 1 failed with a sentence on standard error, 2 wrong usage.
int runCommandLine(std::vector<std::string> words, LocalConsole& console);

}
