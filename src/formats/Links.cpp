#include "formats/Links.h"

#include "base/Text.h"
#include "formats/IMAPAddress.h"
#include "platform/Letters.h"

#include <algorithm>
#include <array>
#include <optional>

namespace velmo {

namespace {

constexpr auto npos = std::string_view::npos;

struct Prefix {
    std::string_view text;
    std::string_view added; ///< what the URL needs in front of the text
};

constexpr std::array prefixes{Prefix{"http://", ""}, Prefix{"https://", ""}, Prefix{"mailto:", ""},
                              Prefix{"www.", "http://"}};

bool isLinkCharacter(char32_t c) {
    if (c >= 0x80) return isAlphanumeric(c);
    return c > ' ' && c != 0x7F && std::string_view("<>\"`{}|\\^").find(static_cast<char>(c)) == npos;
}

bool isWordCharacter(char c) {
    return text::isAlpha(c) || text::isDigit(c) || static_cast<unsigned char>(c) >= 0x80;
}

/// The end of the run of characters from `position` on that all may, or all may not, stand in a link.
std::size_t runEnd(std::string_view line, std::size_t position, bool isLink) {
    while (position < line.size()) {
        std::size_t next = position;
        if (isLinkCharacter(text::nextCodePoint(line, next)) != isLink) break;
        position = next;
    }
    return position;
}

/// Without the punctuation that follows a link in a sentence, and without brackets that were opened in front of it.
std::string_view withoutTail(std::string_view link) {
    auto unopenedRound = std::ranges::count(link, ')') - std::ranges::count(link, '(');
    auto unopenedSquare = std::ranges::count(link, ']') - std::ranges::count(link, '[');
    while (!link.empty()) {
        const char last = link.back();
        if (last == ')' && unopenedRound-- <= 0) break;
        if (last == ']' && unopenedSquare-- <= 0) break;
        if (std::string_view(".,;:!?'*_~)]").find(last) == npos) break;
        link.remove_suffix(1);
    }
    return link;
}

const Prefix* prefixOf(std::string_view text) {
    const auto found = std::ranges::find_if(
        prefixes, [text](const Prefix& prefix) { return text::startsWithIgnoringCase(text, prefix.text); });
    return found == prefixes.end() ? nullptr : &*found;
}

bool isWhole(std::string_view link, const Prefix& prefix) {
    const auto rest = link.substr(std::min(prefix.text.size(), link.size()));
    if (std::ranges::none_of(rest, isWordCharacter)) return false;
    if (prefix.text == "mailto:") return rest.find('@') != npos;
    return prefix.added.empty() || rest.find('.') != npos;
}

/// The link that begins with a prefix and goes on to the end of the run.
std::optional<TextLink> prefixedLink(std::string_view run) {
    for (std::size_t i = 0; i < run.size(); ++i) {
        if (i > 0 && (text::isAlpha(run[i - 1]) || text::isDigit(run[i - 1]))) continue;
        const Prefix* prefix = prefixOf(run.substr(i));
        if (prefix == nullptr) continue;
        const auto link = withoutTail(run.substr(i));
        if (!isWhole(link, *prefix)) return std::nullopt;
        return TextLink{i, link.size(), std::string(prefix->added) + std::string(link)};
    }
    return std::nullopt;
}

bool separatesAddresses(char c) {
    return std::string_view(",;:()[]").find(c) != npos;
}

bool isDomain(std::string_view domain) {
    return std::ranges::all_of(domain, [](char c) { return isWordCharacter(c) || c == '.' || c == '-'; });
}

void appendAddresses(std::string_view run, std::size_t offset, std::vector<TextLink>& links) {
    while (!run.empty()) {
        const auto end = static_cast<std::size_t>(std::ranges::find_if(run, separatesAddresses) - run.begin());
        const auto piece = run.substr(0, end);
        const auto first = std::min(piece.find_first_not_of(".!?'*_~"), piece.size());
        const auto address = withoutTail(piece.substr(first));
        if (const auto domain = domainOf(address); domain && isDomain(*domain))
            links.push_back({offset + first, address.size(), "mailto:" + std::string(address)});
        const auto length = std::min(end + 1, run.size());
        run.remove_prefix(length);
        offset += length;
    }
}

}

std::vector<TextLink> findLinks(std::string_view line) {
    std::vector<TextLink> links;
    // Most lines have none.
    if (line.find_first_of(":@") == npos && !text::containsIgnoringCase(line, "www.")) return links;
    for (std::size_t start = 0; start < line.size();) {
        const auto end = runEnd(line, start, true);
        const auto run = line.substr(start, end - start);
        if (auto link = prefixedLink(run)) {
            link->position += start;
            links.push_back(std::move(*link));
        } else if (run.find('@') != npos) {
            appendAddresses(run, start, links);
        }
        start = runEnd(line, end, false);
    }
    return links;
}

}
