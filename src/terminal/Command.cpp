#include "terminal/Command.h"

#include "base/Localisation.h"
#include "base/Text.h"
#include "terminal/AccountCommands.h"
#include "terminal/InputText.h"
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

/// The first word that is no option has to be a command.
std::optional<std::string> unknownCommand(const CLI::App& program, const std::vector<std::string>& words) {
    const auto first = std::ranges::find_if(words, [](const auto& word) { return !word.starts_with('-'); });
    if (first == words.end()) return std::nullopt;
    const auto named = program.get_subcommands([&](const CLI::App* command) { return command->get_name() == *first; });
    return named.empty() ? std::optional(*first) : std::nullopt;
}

}

std::expected<Command, int> parseCommand(std::vector<std::string> words, Console& console) {
    CLI::App program(tr("Mail in the terminal"), "velmo");
    program.require_subcommand(1);
    program.fallthrough();
    program.set_version_flag("--version", "velmo " VELMO_VERSION);
    bool asJSON = false;
    program.add_flag("--json", asJSON, tr("Write one JSON document to standard output"));
    Command command;
    addAccountCommands(program, command.body);
    addMailCommands(program, command.body);
    addReadCommand(program, command.body);
    addSignatureCommands(program, command.body);
    if (const auto unknown = unknownCommand(program, words)) {
        console.note(tr("velmo: There is no command {}.", shownWord(*unknown)));
        console.note(tr("Try: velmo --help"));
        return std::unexpected(ExitCode::wrongUsage);
    }
    try {
        std::ranges::reverse(words);
        program.parse(std::move(words));
    } catch (const CLI::CallForHelp&) {
        console.line(program.help());
        return std::unexpected(ExitCode::done);
    } catch (const CLI::CallForVersion& version) {
        console.line(version.what());
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
