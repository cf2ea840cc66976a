#pragma once

#include "terminal/Console.h"

#include <string>
#include <vector>

namespace velmo {

/// Runs the command that the words (without the program's name) ask for. Gives the exit code: 0 done, 1 failed with a
/// sentence on standard error, 2 wrong usage.
int runCommandLine(std::vector<std::string> words, Console& console);

}
