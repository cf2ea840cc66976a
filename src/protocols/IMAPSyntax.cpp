#include "protocols/IMAPSyntax.h"

#include "base/Text.h"

#include <algorithm>

namespace velmo {

bool hasLineBreak(std::string_view text) {
    return text.find_first_of(std::string_view("\r\n\0", 3)) != std::string_view::npos;
}

void refuseLineBreaks(std::initializer_list<std::string_view> texts) {
    if (std::ranges::any_of(texts, hasLineBreak)) throw IMAPError::unexpected("a line break in a command");
}

std::string shownCommand(std::string_view command, IMAPClient::Sensitivity sensitivity) {
    if (sensitivity == IMAPClient::Sensitivity::open) return std::string(command);
    const std::string_view word = command.substr(0, command.find(' '));
    return word.empty() ? "command" : std::string(word);
}

std::vector<IMAPValues> untagged(const std::vector<IMAPResponse>& responses, std::string_view word) {
    std::vector<IMAPValues> result;
    for (const IMAPResponse& response : responses) {
        const IMAPValues values = response.values();
        if (!values.empty() && (*values.begin()).isAtom(word)) result.push_back(values);
    }
    return result;
}

std::string imapQuoted(std::string_view text) {
    return "\"" + text::replacedAll(text::replacedAll(text, "\\", "\\\\"), "\"", "\\\"") + "\"";
}

std::string uidSet(std::span<const std::uint32_t> uids) {
    std::vector<std::uint32_t> sorted(uids.begin(), uids.end());
    std::ranges::sort(sorted);
    sorted.erase(std::ranges::unique(sorted).begin(), sorted.end());
    std::string set;
    for (std::size_t first = 0; first < sorted.size();) {
        std::size_t last = first;
        while (last + 1 < sorted.size() && sorted[last + 1] == sorted[last] + 1) ++last;
        if (!set.empty()) set += ',';
        set += std::to_string(sorted[first]);
        if (last > first) set += ":" + std::to_string(sorted[last]);
        first = last + 1;
    }
    return set;
}

std::vector<std::string> setPieces(std::string_view set) {
    std::vector<std::string> pieces;
    while (set.size() > longestSet) {
        const auto end = set.rfind(',', longestSet);
        if (end == std::string_view::npos) break;
        pieces.emplace_back(set.substr(0, end));
        set.remove_prefix(end + 1);
    }
    pieces.emplace_back(set);
    return pieces;
}

}
