#include "terminal/Writing.h"

#include "base/Localisation.h"
#include "base/Text.h"
#include "compose/BodyLayout.h"
#include "platform/CaseFolding.h"
#include "terminal/InputText.h"
#include "terminal/MediaTypes.h"
#include "terminal/TimeWords.h"

#include <CLI/CLI.hpp>
#include <algorithm>

namespace velmo {

namespace {

// --- What is given -----------------------------------------------------------------------------------------------

Date timeToSend(Session& session, const std::string& word) {
    const auto time = timeFrom(word);
    if (!time)
        throw CommandError(tr("{} is no time. Write it as 2026-11-24T09:00, and with a zone as 2026-11-24T09:00+01:00.",
                              shownWord(word)));
    if (*time <= session.app.clock().now()) throw CommandError(tr("{} is over already.", shownWord(word)));
    return *time;
}

std::vector<IMAPAddress> addressesFrom(const std::vector<std::string>& words) {
    std::vector<IMAPAddress> addresses;
    for (const auto& word : words) {
        const auto more = typedAddresses(word);
        addresses.insert(addresses.end(), more.begin(), more.end());
    }
    return addresses;
}

Async<OutgoingAttachment> attachmentFrom(Session& session, std::string name) {
    OutgoingAttachment file;
    file.id = UUID::random();
    file.filename = text::repairedUTF8(std::filesystem::path(name).filename().string());
    file.mimeType = mediaTypeOf(file.filename);
    file.data = co_await fileContents(session, std::move(name));
    co_return file;
}

// --- The body ----------------------------------------------------------------------------------------------------

std::string_view withoutOuterLines(std::string_view body) {
    return text::trimmed(body, "\n");
}

/// Signature and quote at the end of a body.
std::string_view belowWritten(std::string_view body, std::string_view signature) {
    const auto lines = text::split(body, '\n');
    std::size_t first = quotePlace(lines);
    if (const auto block = findSignature(lines, signature)) first = std::min(first, block->first);
    return first < lines.size() ? body.substr(static_cast<std::size_t>(lines[first].data() - body.data())) : "";
}

std::string placed(const std::string& given, std::string_view body, TextPlace place, std::string_view signature) {
    if (place == TextPlace::whole) return given;
    const std::string_view below = place == TextPlace::above ? body : belowWritten(body, signature);
    if (given.empty() || below.empty()) return given + std::string(below);
    return given + "\n\n" + std::string(below);
}

// --- Recipients --------------------------------------------------------------------------------------------------

void leaveOut(const std::vector<std::string>& without, EditedMessage& message) {
    for (const auto& address : without) {
        std::size_t count = 0;
        for (auto* list : {&message.to, &message.cc, &message.bcc})
            count +=
                std::erase_if(*list, [&](const auto& one) { return foldedCase(one.email) == foldedCase(address); });
        if (count == 0) throw CommandError(tr("The message does not go to {}.", shownWord(address)));
    }
}

}

void changeHead(const WrittenContent& content, EditedMessage& message) {
    leaveOut(content.without, message);
    message.to.insert(message.to.end(), content.to.begin(), content.to.end());
    message.cc.insert(message.cc.end(), content.cc.begin(), content.cc.end());
    message.bcc.insert(message.bcc.end(), content.bcc.begin(), content.bcc.end());
    if (content.subject) message.subject = *content.subject;
}

void addWritingOptions(CLI::App& command, const std::shared_ptr<WritingWords>& words) {
    command.add_option("--from", words->from, tr("Address of the account that sends"));
    command.add_option("--to", words->to, tr("Addresses of recipients"));
    command.add_option("--cc", words->cc, tr("Addresses of those who get a copy"));
    command.add_option("--bcc", words->bcc, tr("The same, unseen by the others"));
    command.add_option("--subject", words->subject, tr("Subject"));
    command.add_option("--body-file", words->bodyFile,
                       tr("File with the text, - for standard input; on a terminal your editor opens by default"));
    command.add_flag("--no-edit", words->keepsText, tr("Open no editor"));
    command.add_option("--attach", words->files, tr("Files to go along"));
    command.add_option("--at", words->at, tr("When to send it, as 2026-11-24T09:00"));
}

void addWithoutOption(CLI::App& command, const std::shared_ptr<WritingWords>& words) {
    command.add_option("--without", words->without, tr("Addresses of those who no longer get it"));
}

Async<WrittenContent> writtenContent(Session& session, const WritingWords& words) {
    WrittenContent content;
    if (words.from) content.from = accountNamed(session, *words.from).id;
    content.to = addressesFrom(words.to);
    content.cc = addressesFrom(words.cc);
    content.bcc = addressesFrom(words.bcc);
    for (const auto& one : addressesFrom(words.without)) content.without.push_back(one.email);
    if (words.subject) content.subject = text::repairedUTF8(*words.subject);
    if (words.at) content.at = timeToSend(session, *words.at);
    for (const auto& name : words.files) {
        auto file = co_await attachmentFrom(session, name);
        content.attachments.push_back(std::move(file));
    }
    if (words.bodyFile) content.given = co_await inputText(session, *words.bodyFile);
    co_return content;
}

bool wantsEditor(const Session& session, const WritingWords& words) {
    return session.console.canEditText() && !words.bodyFile && !words.keepsText;
}

EditedMessage editable(const ComposeModel& model) {
    return {*model.to, *model.cc, *model.bcc, *model.subject, *model.body};
}

Async<EditedMessage> edited(Session& session, EditedMessage message, std::vector<std::string> remarks,
                            TextPlace place) {
    const auto room = place == TextPlace::above ? EditorRoom::above : EditorRoom::none;
    const std::string saved = co_await session.console.editText(editorText(message, remarks, room));
    EditedMessage written = editedMessage(saved);
    if (written.body == withoutOuterLines(message.body)) written.body = std::move(message.body);
    co_return written;
}

void apply(const WrittenContent& content, ComposeModel& model, TextPlace place) {
    if (content.from) model.setSender(*content.from);
    EditedMessage message = content.edited.value_or(editable(model));
    if (!content.edited) {
        changeHead(content, message);
        if (content.given) message.body = placed(*content.given, message.body, place, model.signature.value_or(""));
    }
    model.to = std::move(message.to);
    model.cc = std::move(message.cc);
    model.bcc = std::move(message.bcc);
    model.subject = std::move(message.subject);
    model.body = std::move(message.body);
    if (content.attachments.empty()) return;
    model.attachments.update(
        [&content](auto& all) { all.insert(all.end(), content.attachments.begin(), content.attachments.end()); });
}

}
