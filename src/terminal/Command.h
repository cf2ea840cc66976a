#pragma once

#include "terminal/Failure.h"
#include "terminal/Session.h"

#include <expected>
#include <string>
#include <vector>

namespace velmo {

/// What a command line asks for.
struct Command {
    /// What of the installation it has to do with.
    enum class Reach { nothing, accounts, mail };

    CommandBody body;
    Session::Output output = Session::Output::text;
    Reach reach = Reach::mail;
};

/// Understands the words (without the program's name). Gives the exit code when there is nothing to run: help was asked
/// for and shown, or the words are wrong, and the console says how.
std::expected<Command, int> parseCommand(std::vector<std::string> words, Console& console);

}
