#pragma once

#include "formats/IMAPAddress.h"

#include <string>
#include <string_view>
#include <vector>

namespace velmo {

/// What a person writes in their editor. Recipients and subject stand above the text, so that whoever sends a message
/// has seen whom it goes to:
///
///     To: Ana <ana@example.org>,
///         ben@example.org
///     Cc:
///     Bcc:
///     Subject: Lunch
///
///     The text.
///
/// Lines above the text that begin with "#" are remarks.
struct EditedMessage {
    std::vector<IMAPAddress> to, cc, bcc;
    std::string subject;
    std::string body;

    friend bool operator==(const EditedMessage&, const EditedMessage&) = default;
};

/// Where what a person writes goes.
enum class EditorRoom {
    none, ///< the text is the person's own
    above ///< blank lines are left above what is there
};

/// The file that the editor opens. Names and subject come in one line each, without characters that show nothing.
std::string editorText(const EditedMessage& message, const std::vector<std::string>& remarks, EditorRoom room);

/// The message that the file holds, its text without blank lines at its ends. Throws CommandError when the lines above
/// the text are gone or can't be read, or when no text is left.
EditedMessage editedMessage(std::string_view file);

/// Addresses that a person typed, separated by commas. Throws CommandError, which names one that is none.
std::vector<IMAPAddress> typedAddresses(std::string_view words);

}
