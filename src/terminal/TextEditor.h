#pragma once

#include "base/Async.h"
#include "base/UserError.h"

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace velmo {

/// Why an editor gave no text.
class EditorError final : public UserError {
  public:
    using UserError::UserError;
};

/// The longest text that is edited on a terminal.
inline constexpr std::size_t longestEditedText = 1 << 20;

/// The shell's words for the person's editor: $VISUAL or $EDITOR, else the first that is installed of a few; absent
/// without any.
std::optional<std::string> editorCommand();

/// Opens the text in the person's editor on the terminal of this process, and gives what was saved, as UTF-8 with LF
/// between lines and none at the end. Only they can read the file, which goes afterwards. Meanwhile Ctrl+C is the
/// editor's alone.
///
/// Throws EditorError when there is no editor, when it ends with an error, or when the text became too long. Cancelling
/// ends the editor; a text that was changed by then is kept, as `keptText` does it, and standard error says where.
Async<std::string> editOnTerminal(std::string text);

/// Keeps a text that has nowhere else to go, in a file that only the person can read. Gives its path. Throws FileError.
std::filesystem::path keptText(std::string_view text);

}
