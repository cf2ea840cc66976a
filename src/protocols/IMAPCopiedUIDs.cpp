#include "protocols/IMAPCopiedUIDs.h"

#include "base/Text.h"

#include <algorithm>
#include <vector>

namespace velmo {

namespace {

/// Absent when it is no set, or one of more than `most` UIDs.
std::optional<std::vector<std::uint32_t>> uidsOf(std::string_view set, std::size_t most) {
    std::vector<std::uint32_t> uids;
    for (const auto range : text::split(set, ',')) {
        const auto colon = range.find(':');
        const auto one = text::parseUnsigned32(range.substr(0, colon));
        const auto other = colon == std::string_view::npos ? one : text::parseUnsigned32(range.substr(colon + 1));
        if (!one || !other || *one == 0 || *other == 0) return std::nullopt;
        const auto [first, last] = std::minmax(*one, *other);
        if (last - first >= most || uids.size() + (last - first) >= most) return std::nullopt;
        for (std::uint32_t i = 0; i <= last - first; ++i) uids.push_back(first + i);
    }
    return uids;
}

}

void addCopiedUIDs(std::string_view code, std::size_t most, IMAPCopiedUIDs& copied) {
    const auto words = text::split(code, ' ');
    if (words.size() != 4 || !text::equalsIgnoringCase(words[0], "COPYUID")) return;
    const auto uidValidity = text::parseUnsigned32(words[1]);
    const auto before = uidsOf(words[2], most);
    const auto after = uidsOf(words[3], most);
    if (!uidValidity || !before || !after || before->size() != after->size()) return;
    copied.uidValidity = *uidValidity;
    for (std::size_t i = 0; i < before->size(); ++i) copied.targets[(*before)[i]] = (*after)[i];
}

}
