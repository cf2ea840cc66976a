#include "terminal/SignatureCommands.h"

#include "base/Localisation.h"
#include "base/Text.h"
#include "compose/Signatures.h"
#include "terminal/InputText.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

namespace velmo {

namespace {

using Pieces = std::vector<SignaturePiece>;

struct SignatureWords {
    std::string email;
    std::optional<std::string> textFile, piecesFile;
};

void show(Session& session, const MailAccount& account) {
    const Signatures signatures(session.app.settings());
    const std::string text = signatures.signature(account.id).value_or("");
    if (session.isJSON()) {
        const Bytes pieces = signaturePiecesJSON(signatures.richSignature(account.id).value_or(Pieces()));
        session.print(
            {{"account", account.email}, {"text", text}, {"pieces", nlohmann::json::parse(pieces, nullptr, false)}});
    } else if (!text.empty()) {
        session.console.line(printable(text, Lines::kept));
    }
}

Async<void> showFor(Session& session, const std::string& email) {
    show(session, accountNamed(session, email));
    co_return;
}

Async<Pieces> piecesFrom(Session& session, std::string name) {
    const Bytes bytes = co_await fileContents(session, name);
    auto pieces = signaturePiecesFromJSON(bytes);
    if (!pieces) throw CommandError(tr("{} is no JSON array of the pieces of a signature.", shownWord(name)));
    co_return *std::move(pieces);
}

/// Where no file was named: what the pieces say, standard input, or what the person writes.
Async<std::string> textFor(Session& session, const SignatureWords& words, const Pieces& pieces,
                           const std::string& present) {
    if (words.textFile) co_return co_await inputText(session, *words.textFile);
    if (words.piecesFile) {
        std::string text;
        for (const auto& piece : pieces) text += piece.text;
        co_return text;
    }
    if (!session.console.inputIsTerminal()) co_return co_await inputText(session, "-");
    co_return co_await session.console.editText(present);
}

Async<void> set(Session& session, const SignatureWords& words) {
    const MailAccount account = accountNamed(session, words.email);
    Signatures signatures(session.app.settings());
    const std::string present = signatures.signature(account.id).value_or("");
    Pieces pieces;
    if (words.piecesFile) pieces = co_await piecesFrom(session, *words.piecesFile);
    const std::string text = co_await textFor(session, words, pieces, present);
    const bool isEdited = !words.textFile && !words.piecesFile && session.console.inputIsTerminal();
    // Its styled form stays with a text that nobody has changed.
    if (!isEdited || text != present)
        co_await callOn(session.executors.background, [&] { signatures.save(text, pieces, account.id); });
    if (session.isJSON())
        show(session, account);
    else if (signatures.signature(account.id) || signatures.richSignature(account.id))
        session.console.line(tr("The signature of {} is set.", printable(account.email)));
    else
        session.console.line(tr("{} has no signature now.", printable(account.email)));
}

}

void addSignatureCommands(CLI::App& program, CommandBody& body) {
    auto* signature = program.add_subcommand("signature", tr("Show or set the signature of an account"));
    signature->require_subcommand(1);

    auto email = std::make_shared<std::string>();
    auto* showing = signature->add_subcommand("show", tr("Show the text; with --json also the styled pieces"));
    showing->add_option("EMAIL", *email, tr("Address of the account"))->required();
    showing->callback([email, &body] { body = [email](Session& session) { return showFor(session, *email); }; });

    auto words = std::make_shared<SignatureWords>();
    auto* setting = signature->add_subcommand("set", tr("Set both forms of it; an empty one removes it"));
    setting->add_option("EMAIL", words->email, tr("Address of the account"))->required();
    setting->add_option("--text-file", words->textFile,
                        tr("File with the text, - for standard input; on a terminal your editor opens by default"));
    setting->add_option("--html-pieces", words->piecesFile, tr("File with a JSON array of styled pieces"));
    setting->callback([words, &body] { body = [words](Session& session) { return set(session, *words); }; });
}

}
