#include "compose/HTMLBody.h"

#include "base/Text.h"
#include "compose/BodyLayout.h"
#include "compose/Signatures.h"
#include "formats/PlainTextHTML.h"

#include <span>
#include <string>

namespace velmo {

namespace {

constexpr std::string_view opening =
    "<html><body style=\"font-family:-apple-system,Helvetica,Arial,sans-serif;font-size:14px\">";
constexpr std::string_view closing = "</body></html>";

using Lines = std::span<const std::string_view>;

std::vector<std::string_view> linesOf(std::string_view text) {
    if (text.empty()) return {};
    auto lines = text::split(text, '\n');
    for (auto& line : lines) {
        if (line.ends_with('\r')) line.remove_suffix(1);
    }
    return lines;
}

/// HTML shows a run of blanks as one.
std::string withKeptBlanks(std::string_view text) {
    return text::replacedAll(text, "  ", " \u00A0");
}

struct SignaturePlace {
    LineRange lines;
    bool isStyled = false;
};

SignaturePlace signaturePlace(Lines lines, std::string_view plain, bool hasStyled) {
    if (const auto own = findSignature(lines, plain)) return {*own, hasStyled};
    if (!hasStyled || !Signatures::cleaned(plain).empty()) return {markedSignature(lines), false};
    const auto place = quotePlace(lines);
    return {{place, place}, true};
}

}

HTMLWithPictures htmlBody(std::string_view body, std::string_view plainSignature,
                          const std::vector<SignaturePiece>& styledSignature) {
    const std::string text = text::repairedUTF8(body);
    const std::string shown = withKeptBlanks(text);
    const auto shownLines = linesOf(shown);
    const Lines lines(shownLines);
    const auto place = signaturePlace(linesOf(text), plainSignature, !styledSignature.empty());

    HTMLWithPictures signature;
    if (place.isStyled)
        signature = Signatures::html(styledSignature);
    else
        signature.html = plainToHTML(lines.subspan(place.lines.first, place.lines.end - place.lines.first));

    HTMLWithPictures whole{.html = std::string(opening), .pictures = std::move(signature.pictures)};
    whole.html += plainToHTML(lines.first(place.lines.first));
    if (!signature.html.empty()) whole.html += "<div class=\"velmo-signature\">" + signature.html + "</div>";
    whole.html += plainToHTML(lines.subspan(place.lines.end));
    whole.html += closing;
    return whole;
}

}
