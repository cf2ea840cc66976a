#include "formats/PlainTextHTML.h"

#include "base/Text.h"
#include "formats/Links.h"

#include <algorithm>

namespace velmo {

namespace {

void appendEscaped(std::string& out, std::string_view text, std::string_view special) {
    while (!text.empty()) {
        const auto length = std::min(text.find_first_of(special), text.size());
        out += text.substr(0, length);
        if (length == text.size()) return;
        switch (text[length]) {
        case '&': out += "&amp;"; break;
        case '<': out += "&lt;"; break;
        case '>': out += "&gt;"; break;
        default: out += "&quot;"; break;
        }
        text.remove_prefix(length + 1);
    }
}

struct QuotedLine {
    std::size_t depth = 0;
    std::string_view text;
};

/// Takes the ">" off a line; each may have a blank before the next one, and the last one before the text.
QuotedLine unquoted(std::string_view line) {
    QuotedLine quoted;
    while (line.starts_with('>') || (quoted.depth > 0 && line.starts_with(" >"))) {
        line.remove_prefix(line.front() == ' ' ? 2 : 1);
        ++quoted.depth;
    }
    if (quoted.depth > 0 && line.starts_with(' ')) line.remove_prefix(1);
    quoted.depth = std::min(quoted.depth, deepestQuote);
    quoted.text = line;
    return quoted;
}

void appendLinked(std::string& out, std::string_view line) {
    std::size_t done = 0;
    for (const auto& link : findLinks(line)) {
        appendEscaped(out, line.substr(done, link.position - done), "&<>");
        out += "<a href=\"";
        appendEscaped(out, link.url, "&<>\"");
        out += "\">";
        appendEscaped(out, line.substr(link.position, link.length), "&<>");
        out += "</a>";
        done = link.position + link.length;
    }
    appendEscaped(out, line.substr(done), "&<>");
}

class QuoteTags {
  public:
    explicit QuoteTags(std::string& out) : out_(out) {}

    void setDepth(std::size_t depth) {
        for (; depth_ < depth; ++depth_) out_ += "<blockquote>";
        for (; depth_ > depth; --depth_) out_ += "</blockquote>";
    }

  private:
    std::string& out_;
    std::size_t depth_ = 0;
};

}

std::string escapedHTML(std::string_view text) {
    std::string out;
    appendEscaped(out, text, "&<>");
    return out;
}

std::string escapedAttribute(std::string_view value) {
    std::string out;
    appendEscaped(out, value, "&<>\"");
    return out;
}

std::string plainToHTML(std::span<const std::string_view> lines) {
    std::string out;
    QuoteTags quotes(out);
    for (const auto line : lines) {
        const auto quoted = unquoted(line);
        quotes.setDepth(quoted.depth);
        out += "<div>";
        // A line of blanks would have no height.
        if (text::trimmedUnicode(quoted.text).empty())
            out += "<br>";
        else
            appendLinked(out, quoted.text);
        out += "</div>";
    }
    quotes.setDepth(0);
    return out;
}

}
