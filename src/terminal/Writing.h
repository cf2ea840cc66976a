#pragma once

#include "compose/ComposeModel.h"
#include "terminal/Session.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace velmo {

/// What the words of a command say about the content of a message.
struct WritingWords {
    std::optional<std::string> from;
    std::vector<std::string> to, cc, bcc, without, files;
    std::optional<std::string> subject, bodyFile, at;
    bool keepsText = false;
};

/// Where a given text goes in the body that is there.
enum class TextPlace {
    above,   ///< above signature and quote, as a new text
    written, ///< in the place of what the person wrote above signature and quote
    whole    ///< in the place of all of it
};

/// The options of all commands that write: whom it goes to, the subject, the text, files.
void addWritingOptions(CLI::App& command, const std::shared_ptr<WritingWords>& words);

/// The option of those that change a message: who no longer gets it.
void addWithoutOption(CLI::App& command, const std::shared_ptr<WritingWords>& words);

/// The content that was given: read, checked and whole.
struct WrittenContent {
    WrittenContent() {}

    std::optional<UUID> from;
    std::vector<IMAPAddress> to, cc, bcc;
    std::vector<std::string> without; ///< addresses
    std::optional<std::string> subject;
    std::optional<std::string> given;  ///< the text of a file
    std::optional<std::string> edited; ///< the whole body, as it came from the editor
    std::vector<OutgoingAttachment> attachments;
    std::optional<Date> at;
};

/// Reads what the words name. Whatever is wrong with it is thrown here, before anything is done: CommandError,
/// FileError.
Async<WrittenContent> writtenContent(Session& session, const WritingWords& words);

/// True when the person is to write the text in their editor.
bool wantsEditor(const Session& session, const WritingWords& words);

/// The body as the person leaves it in their editor. Blank lines at its ends are dropped, and one that was left as it
/// was comes back as given. Throws EditorError, and CommandError when nothing is left.
Async<std::string> editedBody(Session& session, std::string body, TextPlace place);

/// Puts the content into a message that is loaded. Throws CommandError when someone is to be left out who is not there.
void apply(const WrittenContent& content, ComposeModel& model, TextPlace place);

}
