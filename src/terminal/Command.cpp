#include "terminal/Command.h"

#include "base/Localisation.h"
#include "base/Text.h"
#include "terminal/AccountCommands.h"
#include "terminal/MailCommands.h"
#include "terminal/ReadCommand.h"
#include "terminal/SignatureCommands.h"

#include <CLI/CLI.hpp>
#include <algorithm>

namespace velmo {

namespace {

Command::Reach reachOf(const CLI::App& program) {
    for (const auto* chosen : program.get_subcommands()) {
        const std::string name = chosen->get_name();
        if (name == "accounts" || name == "signature") return Command::Reach::accounts;
        if (name == "read" && chosen->count("--file") > 0) return Command::Reach::nothing;
    }
    return Command::Reach::mail;
}

}

std::expected<Command, int> parseCommand(std::vector<std::string> words, Console& console) {
    CLI::App program(tr("Mail in the terminal"), "velmo");
    program.require_subcommand(1);
    program.fallthrough();
    bool asJSON = false;
    program.add_flag("--json", asJSON, tr("Write one JSON document to standard output"));
    Command command;
    addAccountCommands(program, command.body);
    addMailCommands(program, command.body);
    addReadCommand(program, command.body);
    addSignatureCommands(program, command.body);
    try {
        std::ranges::reverse(words);
        program.parse(std::move(words));
    } catch (const CLI::CallForHelp&) {
        console.line(program.help());
        return std::unexpected(ExitCode::done);
    } catch (const CLI::ParseError& error) {
        console.note(fmt::format("velmo: {}", printable(text::repairedUTF8(error.what()))));
        console.note(tr("Try: velmo --help"));
        return std::unexpected(ExitCode::wrongUsage);
    }
    command.output = asJSON ? Session::Output::json : Session::Output::text;
    command.reach = reachOf(program);
    return command;
}

}
