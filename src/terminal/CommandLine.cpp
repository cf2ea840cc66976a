#include "terminal/CommandLine.h"

#include "base/Localisation.h"
#include "base/Text.h"
#include "terminal/AccountCommands.h"
#include "terminal/MailCommands.h"
#include "terminal/ReadCommand.h"
#include "terminal/Session.h"

#include <CLI/CLI.hpp>
#include <algorithm>

namespace velmo {

namespace {

constexpr int done = 0, failed = 1, wrongUsage = 2;

int runBody(const CommandBody& body, Console& console, Session::Output output) {
    Runtime runtime;
    runtime.cancelOnSignals();
    try {
        runtime.run([&]() -> Async<void> {
            Application application(runtime.executors());
            Session session(application, console, output);
            co_await body(session);
        });
        return done;
    } catch (...) {
        const auto error = std::current_exception();
        console.note(runtime.wasInterrupted() && isCancellation(error)
                         ? tr("Interrupted.")
                         : printable(text::repairedUTF8(sentenceOf(error)), Lines::kept));
        return failed;
    }
}

}

int runCommandLine(std::vector<std::string> words, Console& console) {
    CLI::App program(tr("Mail in the terminal"), "velmo");
    program.require_subcommand(1);
    program.fallthrough();
    bool asJSON = false;
    program.add_flag("--json", asJSON, tr("Write one JSON document to standard output"));
    CommandBody body;
    addAccountCommands(program, body);
    addMailCommands(program, body);
    addReadCommand(program, body);
    try {
        std::ranges::reverse(words);
        program.parse(std::move(words));
    } catch (const CLI::CallForHelp&) {
        console.line(program.help());
        return done;
    } catch (const CLI::ParseError& error) {
        console.note(fmt::format("velmo: {}", printable(text::repairedUTF8(error.what()))));
        console.note(tr("Try: velmo --help"));
        return wrongUsage;
    }
    return runBody(body, console, asJSON ? Session::Output::json : Session::Output::text);
}

}
