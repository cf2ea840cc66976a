#include "terminal/CommandLine.h"

#include "base/Localisation.h"
#include "base/Runtime.h"
#include "base/UserError.h"
#include "terminal/Command.h"
#include "terminal/CommandClient.h"
#include "terminal/CommandSocket.h"

namespace velmo {

namespace {

/// For an application that is just starting, or just quitting.
constexpr Duration patience{5'000};
constexpr Duration pause{100};

CommandRequest requestFor(const Command& command, std::vector<std::string> words, const Console& console) {
    std::error_code ignored;
    CommandRequest request;
    request.words = std::move(words);
    request.directory = std::filesystem::current_path(ignored);
    if (request.directory.empty()) request.directory = "/";
    request.form = console.form();
    request.needsMail = command.reach == Command::Reach::mail;
    return request;
}

Async<void> runHere(const Executors& executors, const Command& command, Console& console) {
    Application application(executors);
    Session session(application, executors, console, command.output);
    std::error_code ignored;
    session.directory = std::filesystem::current_path(ignored);
    std::exception_ptr failure;
    try {
        co_await command.body(session);
    } catch (...) {
        failure = std::current_exception();
    }
    co_await ignoreCancellation();
    session.tellTroubles(failure);
    co_await application.close();
    if (failure) std::rethrow_exception(failure);
}

bool isInUse(const std::exception_ptr& failure) {
    try {
        if (failure) std::rethrow_exception(failure);
    } catch (const ModelStoreError& error) {
        return error.kind() == ModelStoreError::Kind::inUse;
    } catch (...) {
    }
    return false;
}

Async<int> runAnywhere(const Executors& executors, const Command& command, CommandRequest request,
                       LocalConsole& console) {
    const auto socket = commandSocket(Directories::fromEnvironment());
    SystemClock clock;
    const Instant limit = clock.instant() + patience;
    for (;;) {
        const auto code = co_await handOver(socket, request, console, clock);
        if (code) co_return *code;
        std::exception_ptr failure;
        try {
            co_await runHere(executors, command, console);
            co_return ExitCode::done;
        } catch (...) {
            failure = std::current_exception();
        }
        if (!isInUse(failure)) std::rethrow_exception(failure);
        if (clock.instant() >= limit)
            throw UserError(tr("Velmo-Mail or another velmo command has the mail open. End it and try again."));
        co_await clock.wait(pause);
    }
}

/// Ends the command when nobody takes its output any more.
int runInRuntime(const Command& command, std::vector<std::string> words, LocalConsole& console) {
    Runtime runtime;
    runtime.cancelOnSignals();
    console.whenReaderGone([&runtime] { runtime.cancel(); });
    int code = ExitCode::done;
    try {
        code = runtime.run([&]() -> Async<int> {
            if (command.reach == Command::Reach::nothing) {
                co_await runHere(runtime.executors(), command, console);
                co_return ExitCode::done;
            }
            CommandRequest request = requestFor(command, words, console);
            co_return co_await runAnywhere(runtime.executors(), command, std::move(request), console);
        });
    } catch (...) {
        const auto failure = std::current_exception();
        console.progress({});
        code = console.isReaderGone() && isCancellation(failure) ? ExitCode::failed : tellFailure(failure, console);
    }
    console.whenReaderGone({});
    return code;
}

}

int runCommandLine(std::vector<std::string> words, LocalConsole& console) {
    const auto command = parseCommand(words, console);
    int code = command ? runInRuntime(*command, std::move(words), console) : command.error();
    console.flush();
    if (const auto trouble = console.writeTrouble()) {
        console.note(*trouble);
        code = ExitCode::failed;
    }
    if (code == ExitCode::done)
        console.editedTextIsSafe();
    else
        console.tellEditedFiles();
    return code;
}

}
