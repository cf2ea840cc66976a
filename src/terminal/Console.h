#pragma once

#include "base/Bytes.h"

#include <cstddef>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velmo {

/// The person's terminal, or whatever stands in its place: a pipe, a file, a test.
///
/// Colours and the progress line appear only on a terminal. Text from outside goes through `printable` first.
class Console {
  public:
    enum class Style { plain, bold, dim, red, green, yellow, cyan };

    /// Writes to the given streams; a colour is used on one that is a terminal (and NO_COLOR is not set).
    Console(std::FILE* out, std::FILE* err);

    /// A line on standard output.
    void line(std::string_view text = {});

    /// Bytes on standard output, as they are.
    void bytes(BytesView bytes);

    /// Brings out what has been written so far.
    void flush();

    /// A line on standard error: what went wrong, or a word beside the result.
    void note(std::string_view text);

    /// Replaces the progress line; an empty text takes it away. Nothing happens off a terminal.
    void progress(std::string_view text);

    /// The text in a style on a terminal, as it is elsewhere.
    std::string styled(Style style, std::string_view text) const;

    /// Columns of the terminal; 100 where there is none.
    std::size_t width() const;

    bool isTerminal() const { return outIsTerminal_; }

    /// Asks on the controlling terminal for a text that is not shown while it is typed; absent without a terminal.
    std::optional<std::string> askSecret(std::string_view prompt);

    /// The first line of standard input; absent at its end.
    static std::optional<std::string> readLineFromInput();

  private:
    std::FILE* out_;
    std::FILE* err_;
    bool outIsTerminal_;
    bool errIsTerminal_;
    bool outHasColour_;
    bool progressShows_ = false;
};

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
