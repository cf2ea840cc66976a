#pragma once

#include "compose/ComposeModel.h"
#include "terminal/EditedMessage.h"
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
    std::optional<std::string> given;    ///< the text of a file
    std::optional<EditedMessage> edited; ///< as it came from the editor
    std::vector<OutgoingAttachment> attachments;
    std::optional<Date> at;
};

/// Reads what the words name. Whatever is wrong with it is thrown here, before anything is done: CommandError,
/// FileError.
Async<WrittenContent> writtenContent(Session& session, const WritingWords& words);

/// True when the person is to write the text in their editor.
bool wantsEditor(const Session& session, const WritingWords& words);

/// What the editor is to show of a message that is loaded.
EditedMessage editable(const ComposeModel& model);

/// The message as the person leaves it in their editor. Blank lines at the ends of its text are dropped; a text that
/// was left as it was comes back as given. Throws EditorError, and CommandError when nothing is left.
Async<EditedMessage> edited(Session& session, EditedMessage message, std::vector<std::string> remarks, TextPlace place);

/// Puts recipients and subject into a message. Throws CommandError when someone is to be left out who is not there.
void changeHead(const WrittenContent& content, EditedMessage& message);

/// Puts the content into a message that is loaded; one that came from the editor in the place of all of it. Throws
/// CommandError when someone is to be left out who is not there.
void apply(const WrittenContent& content, ComposeModel& model, TextPlace place);

}
