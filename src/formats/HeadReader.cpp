#include "formats/HeadReader.h"

#include "base/Text.h"
#include "formats/TextDecoding.h"

#include <algorithm>

namespace velmo {

namespace {

/// Bytes that no charset is told for go through the usual guesses, line by line: one field says nothing of another.
std::string decodedLines(BytesView head) {
    std::string decoded;
    while (!head.empty()) {
        const auto lineFeed = head.find('\n');
        const auto line = head.substr(0, lineFeed == BytesView::npos ? head.size() : lineFeed + 1);
        decoded += decodeText(line, "");
        head.remove_prefix(line.size());
    }
    return decoded;
}

}

HeadReader::HeadReader(BytesView head) : rest_(head) {
    if (text::isValidUTF8(head)) return;
    repaired_ = decodedLines(head);
    rest_ = repaired_;
}

std::string_view HeadReader::takeLine() {
    const auto end = rest_.find('\n');
    auto line = rest_.substr(0, end);
    rest_.remove_prefix(std::min(rest_.size(), line.size() + 1));
    if (line.ends_with('\r')) line.remove_suffix(1);
    return line;
}

bool HeadReader::continues() const {
    return rest_.starts_with(' ') || rest_.starts_with('\t');
}

std::optional<HeadReader::Field> HeadReader::next() {
    while (!rest_.empty()) {
        // A line that continues nothing is dropped like one without a colon.
        const bool orphan = continues();
        const auto line = takeLine();
        const auto colon = line.find(':');
        if (orphan || colon == std::string_view::npos) continue;
        Field field{text::trimmed(line.substr(0, colon)), text::trimmed(line.substr(colon + 1))};
        if (!continues()) return field;
        unfolded_ = field.value;
        while (continues()) {
            unfolded_ += ' ';
            unfolded_ += text::trimmed(takeLine(), " \t");
        }
        field.value = text::trimmed(unfolded_);
        return field;
    }
    return std::nullopt;
}

}
