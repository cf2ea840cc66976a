#include "terminal/Console.h"

#include "base/Localisation.h"
#include "base/Text.h"
#include "terminal/TextEditor.h"

#include <algorithm>
#include <unicode/uchar.h>

namespace velmo {

namespace {

const char* code(Console::Style style) {
    switch (style) {
    case Console::Style::bold: return "1";
    case Console::Style::dim: return "2";
    case Console::Style::red: return "31";
    case Console::Style::green: return "32";
    case Console::Style::yellow: return "33";
    case Console::Style::cyan: return "36";
    case Console::Style::plain: break;
    }
    return "0";
}

std::size_t columnsOf(char32_t c) {
    const auto point = static_cast<UChar32>(c);
    switch (u_charType(point)) {
    case U_NON_SPACING_MARK:
    case U_ENCLOSING_MARK:
    case U_FORMAT_CHAR: return 0;
    default: break;
    }
    const auto width = u_getIntPropertyValue(point, UCHAR_EAST_ASIAN_WIDTH);
    return width == U_EA_WIDE || width == U_EA_FULLWIDTH ? 2 : 1;
}

/// Marks that turn the direction of the text around them, and so make it look like another one.
bool reordersText(char32_t c) {
    return (c >= 0x202A && c <= 0x202E) || (c >= 0x2066 && c <= 0x2069) || c == 0x200E || c == 0x200F || c == 0x061C;
}

}

Console::~Console() = default;

void Console::line(std::string_view text) {
    bytes(text);
    write(Stream::out, "\n");
}

void Console::bytes(BytesView bytes) {
    progress({});
    if (!bytes.empty()) write(Stream::out, bytes);
}

void Console::note(std::string_view text) {
    progress({});
    if (!text.empty()) write(Stream::error, text);
    write(Stream::error, "\n");
}

void Console::progress(std::string_view text) {
    if (!form_.errIsTerminal || (text.empty() && !progressShows_)) return;
    showProgress(text);
    progressShows_ = !text.empty();
}

Async<std::string> Console::editText(std::string text) {
    if (!canEditText()) throw EditorError(tr("There is no terminal to edit a text on."));
    if (text.size() > longestEditedText) throw EditorError(tr("The text is too long for an editor on the terminal."));
    progress({});
    co_return co_await edited(std::move(text));
}

std::string Console::styled(Style style, std::string_view text) const {
    if (!form_.hasColour || style == Style::plain || text.empty()) return std::string(text);
    return std::string("\033[") + code(style) + 'm' + std::string(text) + "\033[0m";
}

ConsoleForm Console::form() const {
    ConsoleForm form = form_;
    form.width = width();
    return form;
}

bool isHarmless(char32_t c) {
    return c >= 0x20 && (c < 0x7F || c >= 0xA0) && !reordersText(c);
}

std::string printable(std::string_view utf8, Lines lines) {
    std::string out;
    out.reserve(utf8.size());
    for (std::size_t i = 0; i < utf8.size();) {
        const std::size_t start = i;
        const char32_t c = text::nextCodePoint(utf8, i);
        if (c == '\n' || c == '\t')
            out += lines == Lines::kept ? static_cast<char>(c) : ' ';
        else if (!isHarmless(c))
            continue;
        else if (c == 0xFFFD)
            text::appendUTF8(out, c);
        else
            out += utf8.substr(start, i - start);
    }
    return out;
}

std::size_t columns(std::string_view utf8) {
    std::size_t count = 0;
    for (std::size_t i = 0; i < utf8.size();) count += columnsOf(text::nextCodePoint(utf8, i));
    return count;
}

std::string fitted(std::string_view utf8, std::size_t count) {
    const std::size_t whole = columns(utf8);
    if (whole <= count) return std::string(utf8) + std::string(count - whole, ' ');
    std::size_t used = 0, end = 0;
    while (end < utf8.size()) {
        std::size_t next = end;
        const std::size_t more = columnsOf(text::nextCodePoint(utf8, next));
        if (used + more + 1 > count) break;
        used += more;
        end = next;
    }
    std::string out(utf8.substr(0, end));
    if (used < count) {
        out += "…";
        out += std::string(count - used - 1, ' ');
    }
    return out;
}

std::vector<std::string> tableLines(const std::vector<std::vector<std::string>>& rows) {
    std::vector<std::size_t> widths;
    for (const auto& row : rows) {
        widths.resize(std::max(widths.size(), row.size()));
        for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], columns(row[i]));
    }
    std::vector<std::string> lines;
    for (const auto& row : rows) {
        std::string& line = lines.emplace_back();
        for (std::size_t i = 0; i < row.size(); ++i)
            line += i + 1 == row.size() ? row[i] : fitted(row[i], widths[i]) + "  ";
    }
    return lines;
}

}
