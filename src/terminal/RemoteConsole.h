#pragma once

#include "terminal/CommandConnection.h"
#include "terminal/Console.h"

#include <memory>

namespace velmo {

/// The console of a person whose command runs in the application. What is written never waits for them.
class RemoteConsole final : public Console {
  public:
    RemoteConsole(std::shared_ptr<CommandConnection> client, ConsoleForm form)
        : Console(form), client_(std::move(client)) {}

    void flush() override {}
    Async<void> caughtUp() override;
    Async<std::optional<std::string>> askSecret(std::string prompt) override;
    Async<std::optional<std::string>> readLineFromInput() override;
    void editedTextIsSafe() override { client_->send(FrameType::textIsSafe, {}); }

  private:
    void write(Stream stream, BytesView bytes) override;
    void showProgress(std::string_view text) override;
    Async<std::string> edited(std::string text) override;

    std::shared_ptr<CommandConnection> client_;
};

}
