#pragma once

#include "terminal/Console.h"

#include <exception>

namespace velmo {

/// How a program ends.
struct ExitCode {
    static constexpr int done = 0;
    static constexpr int failed = 1; ///< with a sentence on standard error
    static constexpr int wrongUsage = 2;
};

/// Says why a command failed. Gives the exit code.
int tellFailure(const std::exception_ptr& error, Console& console);

}
