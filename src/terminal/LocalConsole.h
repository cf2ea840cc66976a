#pragma once

#include "terminal/Console.h"
#include "terminal/TextEditor.h"

#include <cstdio>
#include <functional>
#include <vector>

namespace velmo {

/// The console of this process.
class LocalConsole final : public Console {
  public:
    /// Writes to the given streams; a colour is used on one that is a terminal (and NO_COLOR is not set).
    LocalConsole(std::FILE* out, std::FILE* err);

    std::size_t width() const override;
    void flush() override;
    Async<void> caughtUp() override;
    Async<std::optional<std::string>> askSecret(std::string prompt) override;
    Async<std::optional<std::string>> readLineFromInput() override;
    void editedTextIsSafe() override;

    /// Says where the texts are that a person wrote in vain.
    void tellEditedFiles();

    /// Writes what was made for this console elsewhere.
    void write(Stream stream, BytesView bytes) override;

    /// Calls `handler` once standard output turns out to lead nowhere any more.
    void whenReaderGone(std::function<void()> handler) { readerGone_ = std::move(handler); }

    bool isReaderGone() const { return isReaderGone_; }

    /// Why standard output does not take what is written, as a sentence; absent when it does, or when its reader has
    /// simply had enough.
    std::optional<std::string> writeTrouble() const;

  private:
    void showProgress(std::string_view text) override;
    Async<std::string> edited(std::string text) override;
    void noticeReader();

    std::FILE* out_;
    std::FILE* err_;
    std::vector<EditedFile> edited_;
    std::function<void()> readerGone_;
    bool isReaderGone_ = false;
    int writeError_ = 0;
};

}
