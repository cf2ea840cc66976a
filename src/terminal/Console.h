#pragma once

#include "base/Async.h"
#include "base/Bytes.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velmo {

/// What the person sees the output of a command on.
struct ConsoleForm {
    ConsoleForm() {}

    std::size_t width = 100;
    bool inIsTerminal = false;
    bool outIsTerminal = false;
    bool errIsTerminal = false;
    bool hasColour = false;
};

/// The person's terminal, or whatever stands in its place: a pipe, a file, a test; here or at the other end of a
/// socket.
///
/// Colours and the progress line appear only on a terminal. Text from outside goes through `printable` first.
class Console {
  public:
    enum class Style { plain, bold, dim, red, green, yellow, cyan };
    enum class Stream { out, error };

    virtual ~Console();
    Console(const Console&) = delete;
    Console& operator=(const Console&) = delete;

    /// A line on standard output.
    void line(std::string_view text = {});

    /// Bytes on standard output, as they are.
    void bytes(BytesView bytes);

    /// A line on standard error: what went wrong, or a word beside the result.
    void note(std::string_view text);

    /// Replaces the progress line; an empty text takes it away. Nothing happens off a terminal.
    void progress(std::string_view text);

    /// Hands on what was written and is held back.
    virtual void flush() = 0;

    /// The text in a style on a terminal, as it is elsewhere.
    std::string styled(Style style, std::string_view text) const;

    /// Columns of the terminal; 100 where there is none.
    virtual std::size_t width() const { return form_.width; }

    bool isTerminal() const { return form_.outIsTerminal; }
    bool inputIsTerminal() const { return form_.inIsTerminal; }

    /// There is a person at a terminal, who can edit a text on it.
    bool canEditText() const { return form_.inIsTerminal && form_.outIsTerminal; }

    /// Form and present width.
    ConsoleForm form() const;

    /// To be awaited by a command that goes on writing: everything is on its way to the reader, who has caught up but
    /// for a rest. Throws `Cancelled` when the reader is gone.
    virtual Async<void> caughtUp() = 0;

    /// Asks on the controlling terminal for a text that is not shown while it is typed; absent without a terminal.
    virtual Async<std::optional<std::string>> askSecret(std::string prompt) = 0;

    /// The next line of standard input; absent at its end.
    virtual Async<std::optional<std::string>> readLineFromInput() = 0;

    /// Opens the text in the person's editor, and gives what they saved, without line feeds at its end. Throws
    /// EditorError when there is no terminal or no editor, when the editor fails, or when the text is too long.
    Async<std::string> editText(std::string text);

    /// What the person wrote in their editor is stored elsewhere now, or not wanted. Until then its file stays.
    virtual void editedTextIsSafe() = 0;

  protected:
    explicit Console(ConsoleForm form) : form_(form) {}

    virtual void write(Stream stream, BytesView bytes) = 0;

    /// On a terminal only; an empty text only after another one.
    virtual void showProgress(std::string_view text) = 0;

    /// `editText` where it can be done.
    virtual Async<std::string> edited(std::string text) = 0;

  private:
    ConsoleForm form_;
    bool progressShows_ = false;
};

/// False for what could drive a terminal, line ends included, or turn the direction of the text around it. All that is
/// not harmless is in the first plane of Unicode.
bool isHarmless(char32_t c);

/// Text from outside as it may go to a terminal: control characters, which could drive it, and marks that reorder text
/// are gone; line ends and tabs stay only where `Lines::kept` asks for them.
enum class Lines { joined, kept };
std::string printable(std::string_view utf8, Lines lines = Lines::joined);

/// Columns that the text takes on a terminal (wide East Asian characters take two, marks none).
std::size_t columns(std::string_view utf8);

/// The text in exactly `count` columns, cut with an ellipsis or filled with blanks.
std::string fitted(std::string_view utf8, std::size_t count);

/// Rows below a header, each column as wide as its widest cell; the last one as it comes.
std::vector<std::string> tableLines(const std::vector<std::vector<std::string>>& rows);

}
