#include "formats/HTMLText.h"

#include "base/Text.h"
#include "formats/Entities.h"
#include "formats/ForwardSearch.h"
#include "formats/WhiteSpace.h"

#include <algorithm>
#include <array>
#include <optional>

// Each step is a linear reader for one replacement that a regular expression says more shortly but runs in quadratic
// time on hostile input; the expressions stand in the tests.

namespace velmo {

namespace {

constexpr auto npos = std::string_view::npos;

/// Elements whose content is not text.
constexpr std::array<std::string_view, 3> hiddenElements{"script", "style", "head"};

/// The index of the hidden element whose name stands there, or the number of elements.
std::size_t hiddenElementAt(std::string_view html, std::size_t position) {
    const auto* found = std::ranges::find_if(hiddenElements, [&](std::string_view name) {
        return text::startsWithIgnoringCase(html.substr(position), name);
    });
    return static_cast<std::size_t>(found - hiddenElements.begin());
}

/// "<!--" to the next "-->".
std::string withoutComments(std::string_view html) {
    std::string out;
    out.reserve(html.size());
    for (;;) {
        const auto open = html.find("<!--");
        const auto close = open == npos ? npos : html.find("-->", open + 4);
        if (close == npos) break;
        out += html.substr(0, open);
        html.remove_prefix(close + 3);
    }
    out += html;
    return out;
}

std::size_t findClosingTag(std::string_view html, std::string_view name, std::size_t from) {
    for (auto at = html.find("</", from); at != npos; at = html.find("</", at + 2)) {
        const auto end = at + 2 + name.size();
        if (end < html.size() && html[end] == '>' && text::startsWithIgnoringCase(html.substr(at + 2), name)) return at;
    }
    return npos;
}

/// Hidden elements with their content, where they are closed.
std::string withoutHiddenElements(std::string_view html) {
    std::string out;
    out.reserve(html.size());
    std::size_t copied = 0;
    ForwardSearch tagEnd;
    std::array<ForwardSearch, hiddenElements.size()> closingTags;
    for (auto at = html.find('<'); at != npos; at = html.find('<', at)) {
        const auto element = hiddenElementAt(html, at + 1);
        ++at;
        if (element == hiddenElements.size()) continue;
        const auto name = hiddenElements[element];
        const auto end = tagEnd.from(at + name.size(), [&](std::size_t from) { return html.find('>', from); });
        if (end == npos) break;
        const auto closing =
            closingTags[element].from(end + 1, [&](std::size_t from) { return findClosingTag(html, name, from); });
        if (closing == npos) continue;
        out += html.substr(copied, at - 1 - copied);
        copied = at = closing + name.size() + 3;
    }
    out += html.substr(copied);
    return out;
}

bool continuesWord(std::string_view html, std::size_t position) {
    const char c = html[position];
    if (static_cast<unsigned char>(c) >= 0x80) return whiteSpaceLength(html, position) == 0;
    return text::isAlpha(c) || text::isDigit(c) || c == '_';
}

/// A hidden element that is never closed swallows everything behind it.
std::string_view untilOpenHiddenElement(std::string_view html) {
    const auto lastTagEnd = html.rfind('>');
    if (lastTagEnd == npos) return html;
    for (auto at = html.find('<'); at < lastTagEnd; at = html.find('<', at + 1)) {
        const auto element = hiddenElementAt(html, at + 1);
        if (element == hiddenElements.size()) continue;
        const auto behind = at + 1 + hiddenElements[element].size();
        if (behind <= lastTagEnd && !continuesWord(html, behind)) return html.substr(0, at);
    }
    return html;
}

/// The length of a tag that breaks the line, 0 when another one stands there.
std::size_t lineBreakLength(std::string_view html) {
    constexpr std::array<std::string_view, 10> closing{"</p>",  "</div>", "</tr>", "</li>", "</h1>",
                                                       "</h2>", "</h3>",  "</h4>", "</h5>", "</h6>"};
    if (text::startsWithIgnoringCase(html, "<br")) {
        std::size_t end = 3;
        for (std::size_t blank = 1; blank > 0 && end < html.size(); end += blank) blank = whiteSpaceLength(html, end);
        if (end < html.size() && html[end] == '/') ++end;
        return end < html.size() && html[end] == '>' ? end + 1 : 0;
    }
    const auto* found =
        std::ranges::find_if(closing, [&](std::string_view tag) { return text::startsWithIgnoringCase(html, tag); });
    return found == closing.end() ? 0 : found->size();
}

std::string withLineBreaks(std::string_view html) {
    std::string out;
    out.reserve(html.size());
    for (;;) {
        const auto at = html.find('<');
        out += html.substr(0, at);
        if (at == npos) return out;
        html.remove_prefix(at);
        const auto length = lineBreakLength(html);
        out += length > 0 ? '\n' : '<';
        html.remove_prefix(std::max<std::size_t>(length, 1));
    }
}

/// "<", at least one character, and the next ">".
std::string withoutTags(std::string_view html) {
    std::string out;
    out.reserve(html.size());
    for (;;) {
        const auto open = html.find('<');
        const auto close = open == npos ? npos : html.find('>', open);
        if (close == npos) break;
        out += html.substr(0, open);
        if (close == open + 1) out += "<>";
        html.remove_prefix(close + 1);
    }
    out += html;
    return out;
}

/// Runs of blanks and tabs as one blank.
std::string withSingleBlanks(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (const char c : text) {
        const bool blank = c == ' ' || c == '\t';
        if (!blank || !out.ends_with(' ')) out += blank ? ' ' : c;
    }
    return out;
}

/// From a line end to the last one in the same white space: one empty line.
std::string withSingleEmptyLines(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (;;) {
        const auto first = text.find('\n');
        out += text.substr(0, first);
        if (first == npos) return out;
        std::size_t last = first;
        for (std::size_t i = first, length = 1; length > 0 && i < text.size(); i += length) {
            length = whiteSpaceLength(text, i);
            if (text[i] == '\n') last = i;
        }
        out += last > first ? "\n\n" : "\n";
        text.remove_prefix(last + 1);
    }
}

}

std::string htmlToPlainText(std::string_view html) {
    const std::string elements = withoutHiddenElements(withoutComments(html));
    const std::string text = decodeEntities(withoutTags(withLineBreaks(untilOpenHiddenElement(elements))));
    return std::string(text::trimmedUnicode(withSingleEmptyLines(withSingleBlanks(text))));
}

}
