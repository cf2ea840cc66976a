#include "formats/UUEncoding.h"

#include "base/Text.h"

#include <algorithm>
#include <optional>
#include <utility>

namespace velmo {

namespace {

constexpr std::string_view beginning = "begin ";

/// A line from `position` on, without its end; moves `position` behind it.
BytesView takeLine(BytesView text, std::size_t& position) {
    const auto lineFeed = text.find('\n', position);
    const auto end = std::min(lineFeed, text.size());
    auto line = text.substr(position, end - position);
    position = std::min(text.size(), end + 1);
    if (line.ends_with('\r')) line.remove_suffix(1);
    return line;
}

/// The name in "begin 644 name"; absent for any other line.
std::optional<BytesView> nameIn(BytesView line) {
    if (!line.starts_with(beginning)) return std::nullopt;
    line.remove_prefix(beginning.size());
    const auto digits = line.find_first_not_of("01234567");
    if (digits == BytesView::npos || digits < 3 || digits > 4 || line[digits] != ' ') return std::nullopt;
    const auto name = text::trimmed(line.substr(digits + 1));
    if (name.empty()) return std::nullopt;
    return name;
}

constexpr bool isLetter(char c) {
    return c >= ' ' && c <= '`';
}

constexpr unsigned valueOf(char c) {
    return (static_cast<unsigned char>(c) - 0x20U) & 0x3FU;
}

/// Appends what a line holds; false when it is no line of a file. Blanks at its end may have been lost on the way.
bool decodeLine(BytesView line, Bytes& data) {
    if (line.empty() || !std::ranges::all_of(line, isLetter)) return false;
    const std::size_t count = valueOf(line.front());
    line.remove_prefix(1);
    const std::size_t letters = (count + 2) / 3 * 4;
    // Some programs end a line with a check character.
    if (count == 0 || line.size() > letters + 2 || line.size() + 4 < letters) return false;
    const auto letter = [&line](std::size_t i) { return i < line.size() ? valueOf(line[i]) : 0U; };
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t first = i / 3 * 4 + i % 3;
        const unsigned shift = 2U * static_cast<unsigned>(i % 3 + 1);
        data += static_cast<char>((letter(first) << shift | letter(first + 1) >> (6U - shift)) & 0xFFU);
    }
    return true;
}

/// The file behind its first line, with the position behind its end; absent when it is broken, and then `position` is
/// where that was seen.
std::optional<Bytes> takeFile(BytesView text, std::size_t& position) {
    Bytes data;
    bool isOver = false;
    while (position < text.size()) {
        const auto start = position;
        const auto line = takeLine(text, position);
        if (line == "end" && !data.empty()) return data;
        const bool isLast = line == "`" || text::trimmed(line).empty();
        if (isLast && !isOver) {
            isOver = true;
        } else if (isOver || !decodeLine(line, data)) {
            position = start;
            return std::nullopt;
        }
    }
    return std::nullopt;
}

}

UUEncodedText takeUUEncodedFiles(BytesView text) {
    UUEncodedText result;
    if (!text.starts_with(beginning) && text.find("\nbegin ") == BytesView::npos) return result;
    for (std::size_t position = 0; position < text.size();) {
        const auto start = position;
        const auto name = nameIn(takeLine(text, position));
        auto data = name ? takeFile(text, position) : std::nullopt;
        if (data)
            result.files.push_back({Bytes(*name), std::move(*data)});
        else
            result.rest += text.substr(start, position - start);
    }
    return result;
}

}
