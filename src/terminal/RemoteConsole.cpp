#include "terminal/RemoteConsole.h"

#include "base/Localisation.h"
#include "base/Text.h"
#include "terminal/TextEditor.h"

namespace velmo {

namespace {

Async<std::optional<std::string>> answerText(CommandConnection& client, FrameType question, std::string prompt) {
    Frame answer = co_await client.ask(question, std::move(prompt));
    if (answer.type == FrameType::noAnswer) co_return std::nullopt;
    co_return std::move(answer.payload);
}

}

void RemoteConsole::write(Stream stream, BytesView bytes) {
    client_->send(stream == Stream::out ? FrameType::output : FrameType::error, bytes);
}

/// A reader who is behind sees the line of the moment in which they have caught up.
void RemoteConsole::showProgress(std::string_view text) {
    if (text.empty() || !client_->isBehind()) client_->send(FrameType::progress, text);
}

Async<void> RemoteConsole::caughtUp() {
    return client_->caughtUp();
}

Async<std::optional<std::string>> RemoteConsole::askSecret(std::string prompt) {
    return answerText(*client_, FrameType::askSecret, std::move(prompt));
}

Async<std::optional<std::string>> RemoteConsole::readLineFromInput() {
    return answerText(*client_, FrameType::askLine, {});
}

Async<std::string> RemoteConsole::edited(std::string text) {
    Frame answer = co_await client_->ask(FrameType::editText, std::move(text));
    if (answer.type == FrameType::editFailed) throw EditorError(text::repairedUTF8(answer.payload));
    if (answer.type == FrameType::noAnswer) throw EditorError(tr("There is no terminal to edit a text on."));
    co_return text::repairedUTF8(answer.payload);
}

}
