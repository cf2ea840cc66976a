#include "terminal/ReadCommand.h"

#include "base/Localisation.h"
#include "base/Text.h"
#include "formats/HTMLText.h"
#include "formats/HeaderWords.h"
#include "formats/MailDate.h"
#include "formats/ShownAddress.h"
#include "terminal/AttachmentFiles.h"
#include "terminal/DateWords.h"
#include "terminal/HTMLLinks.h"
#include "terminal/InputText.h"
#include "terminal/MessageJSON.h"
#include "terminal/MessageNumbers.h"

#include <CLI/CLI.hpp>
#include <array>
#include <cstring>
#include <fstream>
#include <nlohmann/json.hpp>

namespace velmo {

namespace {

/// For the server to hear that a message was read.
constexpr Duration patience{3'000};

struct ReadWords {
    std::int64_t id = 0;
    std::string file;
    std::string directory;
    bool showsSource = false;
    bool onlyPeeks = false;
};

Async<Bytes> sourceOf(Session& session, const ReadWords& words) {
    if (!words.file.empty())
        co_return co_await callOn(session.executors.background,
                                  [&] { return regularFile(words.file, words.file, longestFile); });
    co_await session.app.openMail();
    auto record = session.app.mail().messages.find(words.id);
    if (!record) throw CommandError(tr("There is no message {}.", words.id));
    auto source = co_await session.app.store().bodies().source(std::move(*record));
    session.tellNotices();
    co_return source;
}

std::string headerText(const MIMEField& field) {
    if (text::equalsIgnoringCase(field.name, "Date"))
        if (const auto date = parseDate(field.value)) return longDate(*date);
    const bool isText = text::equalsIgnoringCase(field.name, "Subject") || text::equalsIgnoringCase(field.name, "Date");
    return printable(isText ? decodeHeaderWords(field.value) : shownAddresses(field.value));
}

std::string headerLines(const Console& console, const ParsedMessage& message) {
    constexpr std::array shown{"From", "To", "Cc", "Reply-To", "Date", "Subject"};
    std::string lines;
    for (const char* name : shown) {
        for (const auto& field : message.headers.fields) {
            if (!text::equalsIgnoringCase(field.name, name)) continue;
            lines +=
                console.styled(Console::Style::cyan, fitted(std::string(name) + ":", 10)) + headerText(field) + "\n";
        }
    }
    return lines;
}

std::string sizeText(std::size_t bytes) {
    if (bytes < 1000) return tr("{} bytes", bytes);
    if (bytes < 1'000'000) return fmt::format("{:.1f} kB", static_cast<double>(bytes) / 1e3);
    return fmt::format("{:.1f} MB", static_cast<double>(bytes) / 1e6);
}

std::string attachmentLines(const Console& console, const ParsedMessage& message) {
    std::string lines =
        console.styled(Console::Style::bold, trCount("{} attachment:", "{} attachments:", message.attachments.size()));
    std::vector<std::vector<std::string>> rows;
    for (const auto& attachment : message.attachments)
        rows.push_back({"  " + printable(attachment.filename), printable(attachment.mimeType),
                        sizeText(attachment.data.size()), attachment.isInline ? tr("inline") : std::string{}});
    for (const auto& line : tableLines(rows)) lines += "\n" + line;
    return lines;
}

/// Links are numbered, and their addresses stand below the text.
std::string textOfHTML(const std::string& html) {
    const NumberedLinks links = numberedLinks(html);
    std::string text = htmlToPlainText(links.html);
    if (!links.urls.empty()) text += "\n\n" + tr("Links:");
    for (std::size_t i = 0; i < links.urls.size(); ++i)
        text += fmt::format("\n  [{}] {}", i + 1, printable(text::repairedUTF8(links.urls[i])));
    return text;
}

/// The message as a person reads it, without a line end after the last line.
std::string messageText(const Console& console, const ParsedMessage& message) {
    std::string body = message.plainText.value_or("");
    if (!message.plainText && message.html) body = textOfHTML(*message.html);
    std::string text = headerLines(console, message) + "\n" + printable(body, Lines::kept);
    if (!message.attachments.empty()) text += "\n" + attachmentLines(console, message);
    return text;
}

std::vector<std::string> save(const ParsedMessage& message, const std::filesystem::path& directory) {
    std::vector<std::string> saved;
    for (const auto& path : saveAttachments(message.attachments, directory)) saved.push_back(path.string());
    return saved;
}

/// A person has it before their eyes. In a process of its own the server has to hear of it before the end.
Async<void> markAsRead(Session& session, std::int64_t id) {
    const auto record = session.app.mail().messages.find(id);
    if (!record || record->isSeen) co_return;
    MessageActions& actions = session.app.store().actions();
    const auto taken = actions.setRead({*record}, MessageActions::ReadState::read);
    if (session.place == Session::Place::application) co_return;
    session.console.flush();
    co_await within(session.app.clock(), patience, [&actions] { return actions.finished(); });
    if (const auto failure = actions.takeFailure(taken)) session.console.note(printable(*failure));
}

/// A large message takes its time, which the main executor of the application has not.
Async<void> read(Session& session, const ReadWords& words) {
    const Executor background = session.executors.background;
    const auto directory = session.directory / words.directory;
    const Bytes source = co_await sourceOf(session, words);
    if (words.showsSource) {
        const bool isShown = session.console.isTerminal();
        session.console.bytes(isShown ? printable(text::repairedUTF8(source), Lines::kept) : source);
        co_return;
    }
    const ParsedMessage message = co_await callOn(background, [&] { return ParsedMessage::parse(source); });
    if (session.isJSON()) {
        session.console.line(co_await callOn(background, [&] {
            auto document = jsonOf(message);
            document["saved"] = words.directory.empty() ? std::vector<std::string>() : save(message, directory);
            return textOf(document);
        }));
        co_return;
    }
    session.console.line(co_await callOn(background, [&] { return messageText(session.console, message); }));
    if (!words.directory.empty()) {
        const auto saved = co_await callOn(background, [&] { return save(message, directory); });
        for (const auto& path : saved) session.console.line(tr("Saved {}", printable(text::repairedUTF8(path))));
    }
    if (words.file.empty() && !words.onlyPeeks && session.console.isTerminal()) co_await markAsRead(session, words.id);
}

}

void addReadCommand(CLI::App& program, CommandBody& body) {
    auto words = std::make_shared<ReadWords>();
    auto* reading = program.add_subcommand("read", tr("Show a message: headers, text and attachments"));
    auto* id = reading->add_option("ID", words->id, tr("Number of the message in a list"))->check(messageNumberTrouble);
    auto* file = reading->add_option("--file", words->file, tr("Read a message from a file instead"))->excludes(id);
    id->excludes(file);
    reading->add_flag("--source", words->showsSource,
                      tr("Write the bytes of the message as they are; on a terminal what could drive it is left out"));
    reading->add_flag("--peek", words->onlyPeeks, tr("Leave the message unread"));
    reading->add_option("--save", words->directory, tr("Write the attachments as new files into this directory"));
    reading->callback([words, id, file, &body] {
        if (id->count() + file->count() == 0) throw CLI::RequiredError("ID");
        body = [words](Session& session) { return read(session, *words); };
    });
}

}
