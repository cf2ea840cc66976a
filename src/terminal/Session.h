#pragma once

#include "app/Application.h"
#include "base/Runtime.h"
#include "base/UserError.h"
#include "terminal/Console.h"

#include <exception>
#include <filesystem>
#include <functional>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <utility>

namespace velmo {

/// What a command has to work with.
struct Session {
    enum class Output { text, json };

    Session(Application& application, Executors where, Console& terminal, Output form)
        : app(application), executors(std::move(where)), console(terminal), output(form) {}

    Application& app;
    Executors executors;
    Console& console;
    Output output;

    /// Where the command runs: in a process that ends with it, or in the application, which goes on.
    enum class Place { ownProcess, application };
    Place place = Place::ownProcess;

    /// What relative paths in the command's words start from.
    std::filesystem::path directory;

    bool isJSON() const { return output == Output::json; }

    /// The one document of a command with --json, on standard output. `textOf` is for one that is large.
    void print(const nlohmann::json& document);

    /// Asks a person at the terminal, who answers with a word that begins with "y"; absent when there is nobody to ask.
    Async<std::optional<bool>> confirmed(std::string question);

    /// Says once what has failed since the last command, on standard error; not what `failure`, with which this one
    /// ends, says anyway.
    void tellTroubles(const std::exception_ptr& failure);

    /// Shows what the keychain has to tell the person.
    void tellNotices();
};

enum class JSONForm { lines, oneLine };

/// The document as `Session::print` writes it: what could drive a terminal or reorder text is escaped. May be called on
/// any thread.
std::string textOf(const nlohmann::json& document, JSONForm form = JSONForm::lines);

/// What the command line asked for; runs on the main executor.
using CommandBody = std::function<Async<void>(Session&)>;

/// A command can't do what was asked, and this is why.
class CommandError final : public UserError {
  public:
    using UserError::UserError;
};

/// The account of an address, without regard to case. Throws CommandError.
MailAccount accountNamed(Session& session, const std::string& email);

/// The accounts that an optional --account selects: that one, or all.
std::vector<MailAccount> chosenAccounts(Session& session, const std::optional<std::string>& email);

}
