#include "base/Text.h"
#include "compose/BodyLayout.h"
#include "compose/HTMLBody.h"
#include "formats/PlainTextHTML.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

using namespace velmo;

namespace {

void require(bool holds) {
    if (!holds) std::abort();
}

/// The tags that the HTML of a body is made of, without their attributes, and whether they are closed.
struct Element {
    std::string_view name;
    bool isClosed = true;
};
constexpr std::array elements{Element{"html"}, Element{"body"},       Element{"div"},       Element{"a"},
                              Element{"span"}, Element{"blockquote"}, Element{"br", false}, Element{"img", false}};

/// A tag at the front of the text, up to its ">" behind whole attributes.
std::string_view tagAt(std::string_view text) {
    bool isQuoted = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '"') isQuoted = !isQuoted;
        if (text[i] == '<' && i > 0) break;
        if (text[i] == '>' && !isQuoted) return text.substr(0, i + 1);
    }
    std::abort();
}

void requireOwnAttributes(std::string_view tag) {
    std::string outside;
    bool isQuoted = false;
    for (const char c : tag) {
        if (c == '"') isQuoted = !isQuoted;
        if (!isQuoted) outside += c;
    }
    static constexpr std::array allowed{"<html>",
                                        "</html>",
                                        "<body style=\">",
                                        "</body>",
                                        "<div>",
                                        "<div class=\">",
                                        "</div>",
                                        "<a href=\">",
                                        "</a>",
                                        "<span style=\">",
                                        "</span>",
                                        "<blockquote>",
                                        "</blockquote>",
                                        "<br>",
                                        "<img src=\">",
                                        "<img src=\" width=\">",
                                        "<img src=\" height=\">",
                                        "<img src=\" width=\" height=\">"};
    require(std::ranges::find(allowed, outside) != allowed.end());
}

/// Every tag is one that this system writes, and closes what is open.
void requireOwnMarkup(std::string_view html) {
    std::vector<std::string_view> open;
    for (std::size_t at = html.find('<'); at != std::string_view::npos; at = html.find('<', at + 1)) {
        const auto tag = tagAt(html.substr(at));
        requireOwnAttributes(tag);
        const bool isEnd = tag.starts_with("</");
        const auto rest = tag.substr(isEnd ? 2 : 1);
        const auto name = rest.substr(0, rest.find_first_of(" >"));
        const auto element = std::ranges::find(elements, name, &Element::name);
        require(element != elements.end());
        if (isEnd) {
            require(!open.empty() && open.back() == name);
            open.pop_back();
        } else if (element->isClosed) {
            open.push_back(name);
        }
        require(open.size() < deepestQuote + 8);
    }
    require(open.empty());
    require(text::isValidUTF8(html));
}

}

/// The body up to the first NUL, then the texts of a piece of a signature.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = text::repairedUTF8({reinterpret_cast<const char*>(data), size});
    const auto fields = text::split(text, '\0');
    const auto field = [&fields](std::size_t i) { return i < fields.size() ? fields[i] : std::string_view(); };

    SignaturePiece styled, logo;
    styled.text = field(1);
    styled.isBold = size % 2 == 0;
    styled.color = field(2);
    styled.link = field(3);
    logo.picture = field(4);
    const std::string plain(field(1));

    const std::string body = composedBody(field(0), plain, field(5));
    for (const auto& signature : {std::vector<SignaturePiece>{}, std::vector{styled, logo}}) {
        const auto html = htmlBody(body, plain, signature);
        requireOwnMarkup(html.html);
        require(html.html.size() <= 30 * text.size() + 1000);
    }
    requireOwnMarkup(plainToHTML(text::split(text, '\n')));

    const std::string other = replacedSignature(body, plain, field(4), field(5));
    require(other.size() <= body.size() + signatureBlock(field(4)).size() + 4);
    return 0;
}
