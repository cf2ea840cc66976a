#include "formats/Preview.h"

#include "base/Text.h"
#include "formats/Entities.h"
#include "formats/HTMLText.h"
#include "formats/WhiteSpace.h"
#include "platform/RegularExpression.h"

#include <algorithm>

namespace velmo {

namespace {

constexpr auto npos = std::string_view::npos;
constexpr std::size_t longestSelector = 200;

/// The library's search for a set of characters is a call for each byte.
std::size_t firstOf(std::string_view text, char a, char b) {
    for (std::size_t i = 0; i < text.size(); ++i)
        if (text[i] == a || text[i] == b) return i;
    return npos;
}

std::string_view withoutLeadingSpace(std::string_view text) {
    while (!text.empty()) {
        const auto length = whiteSpaceLength(text, 0);
        if (length == 0) break;
        text.remove_prefix(length);
    }
    return text;
}

bool isSelector(std::string_view text) {
    static const RegularExpression selector(R"re(\A[@\w\p{M}\p{Pc}\x{200C}\x{200D}\s.#:,>+~*()\[\]="'\-]+\z)re");
    return selector.matches(text);
}

/// The length of the rule "selector { declarations }" at the front; 0 when there stands something else.
std::size_t styleRuleLength(std::string_view text) {
    // The selector and its brace take four bytes a character at most.
    const auto open = text.substr(0, 4 * (longestSelector + 1)).find('{');
    if (open == npos || text::firstCodePoints(text, longestSelector + 1).size() <= open) return 0;
    if (!isSelector(text.substr(0, open))) return 0;
    std::size_t depth = 0;
    bool declares = false;
    for (std::size_t i = open; i < text.size(); ++i) {
        declares = declares || text[i] == ':';
        if (text[i] == '{') ++depth;
        if (text[i] == '}' && --depth == 0) return declares ? i + 1 : 0;
    }
    return 0;
}

/// The length of "@charset ...;" or "@import ...;" at the front.
std::size_t styleStatementLength(std::string_view text) {
    const auto end = text.find(';');
    return end == npos ? 0 : end + 1;
}

/// Some senders let their style sheet leak into the beginning of the text.
std::string_view withoutLeadingStyle(std::string_view text) {
    for (;;) {
        const auto start = withoutLeadingSpace(text);
        const bool isStatement = start.starts_with("@charset") || start.starts_with("@import");
        const auto length = isStatement ? styleStatementLength(start) : styleRuleLength(start);
        if (length == 0) return text;
        text = start.substr(length);
    }
}

bool looksLikeHTML(std::string_view text) {
    static const RegularExpression tag(
        R"(<\s*(html|body|table|div|p|span|td|tr|br|img|a|font|center|style|head|meta)\b)",
        RegularExpression::Case::ignored);
    return tag.matches(text);
}

/// A tag may have been cut off at the end.
std::string_view withoutOpenTag(std::string_view text) {
    const auto lastClose = text.rfind('>');
    return text.substr(0, text.find('<', lastClose == npos ? 0 : lastClose + 1));
}

/// The lines of a text; a line ends at CR or LF.
class Lines {
  public:
    explicit Lines(std::string_view text) : rest_(text), lineFeed_(rest_.find('\n')) {}

    bool atEnd() const { return rest_.empty(); }

    std::string_view next() {
        const auto line = rest_.substr(0, std::min(rest_.substr(0, lineFeed_).find('\r'), lineFeed_));
        const auto length = std::min(rest_.size(), line.size() + 1);
        rest_.remove_prefix(length);
        // What is known of the next line feed is kept, since lines may all end with CR.
        if (lineFeed_ != npos) lineFeed_ = lineFeed_ < length ? rest_.find('\n') : lineFeed_ - length;
        return line;
    }

  private:
    std::string_view rest_;
    std::size_t lineFeed_;
};

bool isQuoted(std::string_view line) {
    return withoutLeadingSpace(line).starts_with('>');
}

/// The lines of a text that quote nobody, each in front of a line end.
std::string unquotedLines(std::string_view text) {
    std::string out;
    out.reserve(text.size() + 1);
    for (Lines lines(text); !lines.atEnd();) {
        const auto line = lines.next();
        if (isQuoted(line)) continue;
        out += line;
        out += '\n';
    }
    return out;
}

std::string cleaned(std::string_view text, std::size_t enough) {
    const auto content = withoutLeadingStyle(text);
    if (firstOf(content, '<', '&') == npos) return collapsedWhiteSpace(content, enough);
    const std::string plain = looksLikeHTML(content) ? htmlToPlainText(content) : std::string(content);
    return collapsedWhiteSpace(withoutLeadingStyle(decodeEntities(withoutOpenTag(plain))), enough);
}

}

std::string cleanedPreview(std::string_view text) {
    return cleaned(text, npos);
}

namespace {

/// True when no markup, entity or style sheet stands in the text: then its beginning is cleaned by its beginning alone.
bool isPlainProse(std::string_view text) {
    return text.find('<') == npos && text.find('&') == npos && text.find('{') == npos &&
           text.find("@charset") == npos && text.find("@import") == npos;
}

/// At least the first `length` bytes of the lines that quote nobody, with single blanks; less when there are no more.
std::string proseBeginning(std::string_view text, std::size_t length) {
    std::string out;
    for (Lines lines(text); !lines.atEnd() && out.size() < length;) {
        const auto line = lines.next();
        if (isQuoted(line)) continue;
        const std::string words = collapsedWhiteSpace(line, length - out.size());
        if (!out.empty() && !words.empty()) out += ' ';
        out += words;
    }
    return out;
}

std::string proseSnippet(std::string_view text) {
    std::string preview = proseBeginning(text, snippetLength + 1);
    const auto length = text::firstCodePoints(preview, snippetLength).size();
    if (length < preview.size()) {
        preview.resize(length);
        return preview;
    }
    // A character takes four bytes at most.
    return std::string(text::firstCodePoints(proseBeginning(text, 4 * snippetLength), snippetLength));
}

}

std::string snippet(const std::optional<std::string>& plainText, const std::optional<std::string>& html) {
    const std::string converted = !plainText && html ? htmlToPlainText(*html) : std::string{};
    const std::string_view text = plainText ? *plainText : converted;
    if (isPlainProse(text)) return proseSnippet(text);
    const std::string preview = cleaned(collapsedWhiteSpace(unquotedLines(text)), 4 * snippetLength);
    return std::string(text::firstCodePoints(preview, snippetLength));
}

}
