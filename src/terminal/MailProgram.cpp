#include "terminal/MailProgram.h"

#include "app/Application.h"
#include "base/Flag.h"
#include "base/Localisation.h"
#include "base/Runtime.h"
#include "base/Text.h"
#include "platform/FileLock.h"
#include "platform/Log.h"
#include "terminal/Command.h"
#include "terminal/CommandClient.h"
#include "terminal/CommandServer.h"
#include "terminal/CommandSocket.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdlib>
#include <set>

namespace velmo {

namespace {

/// For another instance that is just starting or quitting, and for a command that has the mail open.
constexpr Duration patience{5'000};
constexpr Duration look{50};
/// For what is under way when the person quits.
constexpr Duration mostForQuitting{8'000};
/// For messages that are on their way out by then; what is not sent waits for the next start.
constexpr Duration mostForSending{15'000};

// --- Start -------------------------------------------------------------------------------------------------------

/// Gives the exit code when there is nothing to run.
std::optional<int> parseArguments(const std::vector<std::string>& arguments, Console& console) {
    if (std::ranges::find(arguments, "--mcp") != arguments.end()) {
        console.note(tr("The MCP bridge is not available in this build yet."));
        return ExitCode::failed;
    }
    CLI::App program(tr("Mail on the desktop"), "velmo-mail");
    program.set_version_flag("--version", "velmo-mail " VELMO_VERSION);
    bool isBridge = false;
    program.add_flag("--mcp", isBridge, tr("Be the bridge between an MCP client and the running application"));
    try {
        program.parse(std::vector<std::string>(arguments.rbegin(), arguments.rend() - (arguments.empty() ? 0 : 1)));
    } catch (const CLI::CallForHelp&) {
        console.line(program.help());
        return ExitCode::done;
    } catch (const CLI::CallForVersion& version) {
        console.line(version.what());
        return ExitCode::done;
    } catch (const CLI::ParseError& error) {
        console.note(fmt::format("velmo-mail: {}", printable(text::repairedUTF8(error.what()))));
        console.note(tr("Try: velmo-mail --help"));
        return ExitCode::wrongUsage;
    }
    return std::nullopt;
}

/// The lock of the one instance; absent when there is one already, which has been told.
Async<std::optional<FileLock>> becomeTheInstance(const Directories& directories) {
    SystemClock clock;
    const Instant limit = clock.instant() + patience;
    for (;;) {
        auto lock = FileLock::tryLock(directories.run / "velmo-mail.lock");
        if (lock) co_return lock;
        const bool heard = co_await activateRunning(commandSocket(directories), clock);
        if (heard) co_return std::nullopt;
        if (clock.instant() >= limit) throw UserError(tr("Velmo-Mail is running already, but does not answer."));
        co_await clock.wait(look);
    }
}

void tellAboutWindow(Console& console) {
    if (std::getenv("DISPLAY") == nullptr && std::getenv("WAYLAND_DISPLAY") == nullptr)
        console.note(tr("There is no display, so Velmo-Mail runs without a window. Use it with: velmo"));
}

// --- Commands ----------------------------------------------------------------------------------------------------

Async<int> runCommand(Application& application, Executors executors, CommandRequest request, Console& console) {
    const auto command = parseCommand(request.words, console);
    if (!command) co_return command.error();
    Session session(application, executors, console, command->output);
    session.place = Session::Place::application;
    session.directory = request.directory;
    application.accounts().refresh();
    std::exception_ptr failure;
    try {
        co_await command->body(session);
    } catch (...) {
        failure = std::current_exception();
    }
    session.tellTroubles(failure);
    if (failure) std::rethrow_exception(failure);
    co_return ExitCode::done;
}

/// Without an account no store is open, and each client shows the samples by itself.
CommandHooks hooksOf(Application& application, const Executors& executors) {
    CommandHooks hooks;
    hooks.accepts = [&application](const CommandRequest& request) {
        return !request.needsMail || !application.accounts().accounts->empty();
    };
    hooks.run = [&application, executors](CommandRequest request, Console& console) {
        return runCommand(application, executors, std::move(request), console);
    };
    hooks.activate = [&application] {
        if (application.isOpen()) application.store().refreshAll();
    };
    return hooks;
}

// --- Run ---------------------------------------------------------------------------------------------------------

std::set<UUID> accountsOf(Application& application) {
    std::set<UUID> identifiers;
    for (const auto& account : application.accounts().accounts.get()) identifiers.insert(account.id);
    return identifiers;
}

Async<void> openMail(Application& application) {
    const Instant limit = application.clock().instant() + patience;
    for (;;) {
        try {
            co_await application.openMail();
            co_return;
        } catch (const ModelStoreError& error) {
            if (error.kind() != ModelStoreError::Kind::inUse) throw;
            // There is no other instance: its lock is held here.
            if (application.clock().instant() >= limit)
                throw UserError(tr("A velmo command has the mail open, perhaps velmo watch. End it and try again."));
        }
        co_await application.clock().wait(look);
    }
}

/// Keeps the store at what the accounts require. Until there is one, nothing is opened.
Async<void> followAccounts(Application& application) {
    Flag changed(co_await boost::asio::this_coro::executor);
    const ScopedConnection watching = application.accounts().accounts.onChange([&changed] { changed.raise(); });
    std::set<UUID> known;
    for (;;) {
        changed.lower();
        auto present = accountsOf(application);
        if (present == known) {
            co_await changed.wait();
            continue;
        }
        known = std::move(present);
        co_await openMail(application);
        co_await application.store().start();
    }
}

/// The person was told that these messages are sent.
Async<void> sendTheRest(Application& application) {
    Outbox* outbox = application.isOpen() ? application.outbox() : nullptr;
    if (outbox == nullptr || !outbox->hasUnsent()) co_return;
    SystemClock clock;
    try {
        co_await within(clock, mostForSending, [outbox] { return outbox->flush(); });
    } catch (const UserError& error) {
        log("Application").error("Messages wait in the outbox: {}", pub(error.sentence()));
    }
}

/// What hangs must not keep the person from quitting: the store is left as after a crash, which it survives.
Async<void> quit(Application& application, CommandServer& server, const Executors& executors, Console& console) {
    if (application.isOpen()) application.store().actions().commitPendingAction();
    co_await sendTheRest(application);
    Task closing(executors.main, [&]() -> Async<void> {
        co_await server.stop();
        co_await application.close();
    });
    SystemClock clock;
    const auto ended = co_await within(clock, mostForQuitting, [&closing] { return closing.finished(); });
    if (ended) co_return;
    const auto sentence = tr("Velmo-Mail quit before it could finish what was under way.");
    console.note(sentence);
    log("Application").error("{}", pub(sentence));
    std::error_code ignored;
    std::filesystem::remove(commandSocket(application.directories()), ignored);
    stopLogging();
    std::_Exit(ExitCode::failed);
}

Async<void> runApplication(const Executors& executors, Console& console) {
    Application application(executors);
    CommandServer server(executors, application.clock(), commandSocket(application.directories()),
                         hooksOf(application, executors));
    std::exception_ptr failure;
    try {
        if (!application.accounts().accounts->empty()) co_await openMail(application);
        server.start();
        log("Application").info("Velmo-Mail runs.");
        co_await followAccounts(application);
    } catch (...) {
        failure = std::current_exception();
    }
    co_await ignoreCancellation();
    co_await quit(application, server, executors, console);
    if (failure && !isCancellation(failure)) std::rethrow_exception(failure);
}

}

int runMailProgram(const std::vector<std::string>& arguments, Console& console) {
    if (const auto code = parseArguments(arguments, console)) return *code;
    try {
        const auto directories = Directories::fromEnvironment();
        makePrivateDirectory(directories.run);
        Runtime runtime;
        runtime.cancelOnSignals();
        runtime.run([&]() -> Async<void> {
            const auto lock = co_await becomeTheInstance(directories);
            if (!lock) co_return;
            tellAboutWindow(console);
            co_await runApplication(runtime.executors(), console);
        });
        return ExitCode::done;
    } catch (...) {
        const auto failure = std::current_exception();
        return isCancellation(failure) ? ExitCode::done : tellFailure(failure, console);
    }
}

}
