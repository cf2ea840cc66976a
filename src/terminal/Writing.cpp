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
        for (const auto piece : OutgoingMessage::splitAddressList(word)) {
            if (text::trimmedUnicode(piece).empty()) continue;
            auto address = OutgoingMessage::parseAddress(text::repairedUTF8(piece));
            if (!address) throw CommandError(tr("Check these addresses: {}", shownWord(std::string(piece))));
            addresses.push_back(*std::move(address));
        }
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

using Addresses = Observed<std::vector<IMAPAddress>>;

void add(Addresses& list, const std::vector<IMAPAddress>& more) {
    if (more.empty()) return;
    list.update([&more](auto& all) { all.insert(all.end(), more.begin(), more.end()); });
}

void leaveOut(const std::vector<std::string>& without, ComposeModel& model) {
    for (const auto& address : without) {
        std::size_t count = 0;
        for (Addresses* list : {&model.to, &model.cc, &model.bcc}) {
            auto left = **list;
            count += std::erase_if(left, [&](const auto& one) { return foldedCase(one.email) == foldedCase(address); });
            *list = std::move(left);
        }
        if (count == 0) throw CommandError(tr("The message does not go to {}.", shownWord(address)));
    }
}

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

Async<std::string> editedBody(Session& session, std::string body, TextPlace place) {
    const bool needsRoom = place == TextPlace::above && !body.empty();
    std::string opened = (needsRoom ? "\n\n" : "") + body;
    const std::string saved = co_await session.console.editText(std::move(opened));
    if (text::trimmedUnicode(saved).empty()) throw CommandError(tr("No text is left, so nothing is done."));
    if (withoutOuterLines(saved) == withoutOuterLines(body)) co_return body;
    co_return std::string(withoutOuterLines(saved));
}

void apply(const WrittenContent& content, ComposeModel& model, TextPlace place) {
    if (content.from) model.setSender(*content.from);
    leaveOut(content.without, model);
    add(model.to, content.to);
    add(model.cc, content.cc);
    add(model.bcc, content.bcc);
    if (content.subject) model.subject = *content.subject;
    if (content.edited)
        model.body = *content.edited;
    else if (content.given)
        model.body = placed(*content.given, *model.body, place, model.signature.value_or(""));
    if (content.attachments.empty()) return;
    model.attachments.update(
        [&content](auto& all) { all.insert(all.end(), content.attachments.begin(), content.attachments.end()); });
}

}
