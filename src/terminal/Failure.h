#pragma once

#include "base/UserError.h"
#include "terminal/Console.h"

#include <exception>

namespace velmo {

/// How a program ends.
struct ExitCode {
    static constexpr int done = 0;
    static constexpr int failed = 1; ///< with a sentence on standard error
    static constexpr int wrongUsage = 2;
};

/// A command was called in a way in which it must do nothing: it ends with `wrongUsage`.
class UsageError final : public UserError {
  public:
    using UserError::UserError;
};

/// Says why a command failed. Gives the exit code.
int tellFailure(const std::exception_ptr& error, Console& console);

}
