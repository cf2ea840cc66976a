#pragma once

#include "base/Clock.h"
#include "terminal/CommandRequest.h"
#include "terminal/LocalConsole.h"

#include <filesystem>
#include <optional>

namespace velmo {

/// Has the running application carry out a command, whose output goes to the console and whose questions are asked
/// there. Gives the exit code; absent when no application took the command, so that nothing of it has happened.
/// Cancelling ends the command there too.
Async<std::optional<int>> handOver(std::filesystem::path socket, CommandRequest request, LocalConsole& console,
                                   Clock& clock);

/// Tells the running application that the person started it again; gives whether it heard.
Async<bool> activateRunning(std::filesystem::path socket, Clock& clock);

}
