#include "terminal/ComposeCommands.h"

#include "base/Localisation.h"
#include "base/Text.h"
#include "compose/ComposeModel.h"
#include "platform/AtomicFile.h"
#include "terminal/MessageRows.h"
#include "terminal/OutboxCommands.h"

#include <CLI/CLI.hpp>
#include <array>
#include <ctime>
#include <nlohmann/json.hpp>

namespace velmo {

namespace {

struct ComposeWords {
    std::int64_t id = 0; ///< of the message that is answered, passed on or edited
    std::string url;
    std::optional<std::string> from;
    std::vector<std::string> to, cc, bcc, files;
    std::optional<std::string> subject, bodyFile, at;
    bool isToAll = false;
    bool isDraft = false;
};

/// What the terminal looks at while a message waits to go.
constexpr Duration look{200};

// --- What is given -----------------------------------------------------------------------------------------------

std::string shown(const std::string& word) {
    return printable(text::repairedUTF8(word));
}

Async<Bytes> contentsOf(Session& session, std::string name) {
    const auto file = session.directory / name;
    auto bytes = co_await callOn(session.executors.background, [&] { return readFile(file); });
    if (!bytes) throw CommandError(tr("There is no file {}.", shown(name)));
    co_return *std::move(bytes);
}

Async<std::string> givenText(Session& session, std::string name) {
    std::string given;
    if (name != "-") {
        given = co_await contentsOf(session, std::move(name));
    } else {
        while (true) {
            auto line = co_await session.console.readLineFromInput();
            if (!line) break;
            given += *line + "\n";
        }
    }
    given = text::replacedAll(text::repairedUTF8(given), "\r\n", "\n");
    while (given.ends_with('\n')) given.pop_back();
    co_return given;
}

/// By the ending of the name; for whoever opens it.
std::string_view mediaTypeOf(std::string_view name) {
    struct Type {
        std::string_view ending, type;
    };
    constexpr std::array types{Type{"txt", "text/plain"},
                               Type{"csv", "text/csv"},
                               Type{"html", "text/html"},
                               Type{"ics", "text/calendar"},
                               Type{"md", "text/markdown"},
                               Type{"pdf", "application/pdf"},
                               Type{"zip", "application/zip"},
                               Type{"gz", "application/gzip"},
                               Type{"json", "application/json"},
                               Type{"xml", "application/xml"},
                               Type{"png", "image/png"},
                               Type{"jpg", "image/jpeg"},
                               Type{"jpeg", "image/jpeg"},
                               Type{"gif", "image/gif"},
                               Type{"webp", "image/webp"},
                               Type{"svg", "image/svg+xml"},
                               Type{"mp3", "audio/mpeg"},
                               Type{"mp4", "video/mp4"},
                               Type{"eml", "message/rfc822"},
                               Type{"odt", "application/vnd.oasis.opendocument.text"},
                               Type{"docx", "application/vnd.openxmlformats-officedocument.wordprocessingml.document"},
                               Type{"xlsx", "application/vnd.openxmlformats-officedocument.spreadsheetml.sheet"}};
    const auto dot = name.rfind('.');
    const std::string ending = dot == std::string_view::npos ? std::string() : text::lowered(name.substr(dot + 1));
    for (const auto& one : types)
        if (one.ending == ending) return one.type;
    return "application/octet-stream";
}

/// "2026-11-24T09:00" or "2026-11-24 09:00" in the machine's zone, or ISO 8601 with its "Z".
Date timeFrom(const std::string& word) {
    if (const auto exact = dateFromISO8601(word)) return *exact;
    for (const char* form : {"%Y-%m-%dT%H:%M", "%Y-%m-%d %H:%M"}) {
        std::tm local{};
        local.tm_isdst = -1;
        const char* end = strptime(word.c_str(), form, &local);
        if (end == nullptr || *end != '\0') continue;
        return Date{std::chrono::seconds{std::mktime(&local)}};
    }
    throw CommandError(tr("{} is no time. Write it as 2026-11-24T09:00.", shown(word)));
}

std::vector<IMAPAddress> addressesFrom(const std::vector<std::string>& words) {
    std::vector<IMAPAddress> addresses;
    for (const auto& word : words) {
        for (const auto piece : OutgoingMessage::splitAddressList(word)) {
            if (text::trimmedUnicode(piece).empty()) continue;
            auto address = OutgoingMessage::parseAddress(text::repairedUTF8(piece));
            if (!address) throw CommandError(tr("Check these addresses: {}", shown(std::string(piece))));
            addresses.push_back(*std::move(address));
        }
    }
    return addresses;
}

void add(Observed<std::vector<IMAPAddress>>& list, const std::vector<std::string>& words) {
    const auto more = addressesFrom(words);
    list.update([&more](auto& all) { all.insert(all.end(), more.begin(), more.end()); });
}

Async<void> apply(Session& session, ComposeModel& model, const ComposeWords& words, const std::string& given) {
    if (words.from) model.setSender(accountNamed(session, *words.from).id);
    add(model.to, words.to);
    add(model.cc, words.cc);
    add(model.bcc, words.bcc);
    if (words.subject) model.subject = text::repairedUTF8(*words.subject);
    if (!given.empty()) model.body = model.body->empty() ? given : given + "\n\n" + *model.body;
    for (const auto& name : words.files) {
        OutgoingAttachment file;
        file.id = UUID::random();
        file.filename = text::repairedUTF8(std::filesystem::path(name).filename().string());
        file.mimeType = mediaTypeOf(file.filename);
        file.data = co_await contentsOf(session, name);
        model.attachments.update([&file](auto& all) { all.push_back(std::move(file)); });
    }
}

// --- Sending -----------------------------------------------------------------------------------------------------

/// Waits in a process of its own until the message is gone; a person who interrupts takes it back.
Async<void> seeOut(Session& session, UUID id) {
    Outbox& outbox = *session.app.outbox();
    outbox.start();
    std::exception_ptr failure;
    try {
        for (auto item = outbox.item(id); item && !item->failure; item = outbox.item(id)) {
            const auto left = std::chrono::ceil<std::chrono::seconds>(item->sendAt - session.app.clock().now()).count();
            session.console.progress(left > 0 ? tr("Sending in {} s (Ctrl+C takes it back)", left) : tr("Sending"));
            co_await session.app.clock().wait(look);
        }
    } catch (...) {
        failure = std::current_exception();
    }
    session.console.progress({});
    co_await ignoreCancellation();
    if (failure) {
        const bool isTaken = co_await takeBackAsDraft(session, id);
        if (!isTaken) std::rethrow_exception(failure);
        session.console.note(tr("Taken back, saved as draft."));
        std::rethrow_exception(failure);
    }
    const auto left = outbox.item(id);
    if (left && left->failure) throw CommandError(*left->failure);
    co_await outbox.finished();
}

void tell(Session& session, const ComposeModel& model, const char* state, const std::string& line) {
    if (session.isJSON()) {
        nlohmann::json document{{"state", state}, {"messageID", model.messageID.value_or("")}};
        if (model.queuedItem()) document["id"] = model.queuedItem()->text();
        session.print(document);
    } else {
        session.console.line(line);
    }
}

Async<void> saveAsDraft(Session& session, ComposeModel& model) {
    co_await model.saveDraft();
    if (!model.hasSavedDraft) throw CommandError(tr("There is nothing to save yet."));
    tell(session, model, "draft", tr("Draft saved."));
}

Async<void> sendOff(Session& session, ComposeModel& model, std::optional<Date> at) {
    const bool isQueued = co_await model.send(at);
    if (!isQueued) throw CommandError(model.errorMessage->value_or(tr("There is nobody to send it to.")));
    const UUID id = *model.queuedItem();
    const bool isOwn = session.place == Session::Place::ownProcess;
    if (at) {
        tell(session, model, "scheduled", tr("Scheduled as {}.", id.text()));
        if (isOwn) session.console.note(tr("It is sent while velmo-mail runs."));
        co_return;
    }
    if (isOwn) {
        co_await seeOut(session, id);
        tell(session, model, "sent", tr("Message sent."));
        co_return;
    }
    const auto seconds = Outbox::undoWindow(session.app.settings()).count();
    tell(session, model, "queued",
         tr("Message sent. For {} s, take it back with: velmo outbox undo {}", seconds, id.text()));
}

/// What kind of message it is, by the words.
using RequestOf = ComposeRequest (*)(const ComposeWords&);

Async<void> write(Session& session, const ComposeWords& words, RequestOf requestOf) {
    Outbox* outbox = co_await openOutbox(session);
    const auto at = words.at ? std::optional(timeFrom(*words.at)) : std::nullopt;
    std::string given;
    if (words.bodyFile) given = co_await givenText(session, *words.bodyFile);
    ComposeModel model(session.app.store(), *outbox, session.app.settings());
    std::exception_ptr failure;
    try {
        const ComposeRequest request = requestOf(words);
        co_await model.load(request);
        if (*model.errorMessage) throw CommandError(**model.errorMessage);
        co_await apply(session, model, words, given);
        if (words.isDraft)
            co_await saveAsDraft(session, model);
        else
            co_await sendOff(session, model, at);
    } catch (...) {
        failure = std::current_exception();
    }
    co_await ignoreCancellation();
    co_await model.close();
    session.tellNotices();
    if (failure) std::rethrow_exception(failure);
}

CLI::App* addWriting(CLI::App& program, CommandBody& body, const char* name, const char* help,
                     const std::shared_ptr<ComposeWords>& words, RequestOf requestOf) {
    auto* command = program.add_subcommand(name, tr(help));
    command->add_option("--from", words->from, tr("Address of the account that sends"));
    command->add_option("--to", words->to, tr("Addresses of recipients"));
    command->add_option("--cc", words->cc, tr("Addresses of those who get a copy"));
    command->add_option("--bcc", words->bcc, tr("The same, unseen by the others"));
    command->add_option("--subject", words->subject, tr("Subject"));
    command->add_option("--body-file", words->bodyFile, tr("File with the text; - for standard input"));
    command->add_option("--attach", words->files, tr("Files to go along"));
    command->add_option("--at", words->at, tr("When to send it, as 2026-11-24T09:00"));
    command->add_flag("--draft", words->isDraft, tr("Store it as a draft, and send nothing"));
    command->callback([words, requestOf, &body] {
        body = [words, requestOf](Session& session) { return write(session, *words, requestOf); };
    });
    return command;
}

void addAnswering(CLI::App& program, CommandBody& body, const char* name, const char* help, RequestOf requestOf) {
    auto words = std::make_shared<ComposeWords>();
    auto* command = addWriting(program, body, name, help, words, requestOf);
    command->add_option("ID", words->id, tr("Number of a message in a list"))->required();
    if (std::string_view(name) == "reply") command->add_flag("--all", words->isToAll, tr("Answer all who got it"));
}

}

void addComposeCommands(CLI::App& program, CommandBody& body) {
    addWriting(program, body, "compose", "Write a new message", std::make_shared<ComposeWords>(),
               [](const ComposeWords&) -> ComposeRequest {
                   return ComposeRequest::New{{}, UUID::random()};
               });
    addAnswering(program, body, "reply", "Answer a message", [](const ComposeWords& words) -> ComposeRequest {
        return ComposeRequest::Reply{words.id, words.isToAll, {}, UUID::random()};
    });
    addAnswering(program, body, "forward", "Pass a message on", [](const ComposeWords& words) -> ComposeRequest {
        return ComposeRequest::Forward{words.id, UUID::random()};
    });
    addAnswering(program, body, "followup", "Remind of a message that got no answer",
                 [](const ComposeWords& words) -> ComposeRequest {
                     return ComposeRequest::FollowUp{words.id, UUID::random()};
                 });
    auto words = std::make_shared<ComposeWords>();
    addWriting(program, body, "mailto", "Write to a link of mail", words,
               [](const ComposeWords& given) -> ComposeRequest {
                   return ComposeRequest::Mailto{given.url, {}, UUID::random()};
               })
        ->add_option("URL", words->url, tr("The link"))
        ->required();
}

}
