#include "terminal/RemoteConsole.h"

namespace velmo {

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
    return client_->ask(FrameType::askSecret, std::move(prompt));
}

Async<std::optional<std::string>> RemoteConsole::readLineFromInput() {
    return client_->ask(FrameType::askLine, {});
}

}
