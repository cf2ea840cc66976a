#pragma once

#include "base/Async.h"
#include "base/Bytes.h"
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

/// A text while it is edited: a new file in a new folder, neither of which anybody else can look into. It stays until
/// it is removed, so that nothing that ends this process loses what a person wrote. Throws FileError.
class EditedFile {
  public:
    explicit EditedFile(std::string_view text);

    std::filesystem::path path() const { return folder_ / "message.txt"; }

    /// What stands there now, up to one byte more than may.
    Bytes contents() const;

    /// The person has saved something that is neither what was opened nor blank.
    bool holdsWords() const;

    /// Removes the file and its folder, as well as it can.
    void remove() const;

  private:
    std::filesystem::path folder_;
    std::string opened_;
};

/// Opens the file in the person's editor on the terminal of this process, and gives what was saved, as UTF-8 with LF
/// between lines and none at the end. Meanwhile Ctrl+C is the editor's alone.
///
/// Throws EditorError when there is no editor, when it ends with an error, or when the text became too long. Cancelling
/// ends the editor.
Async<std::string> editOnTerminal(const EditedFile& file);

}
