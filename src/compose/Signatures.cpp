#include "compose/Signatures.h"

#include "base/Text.h"
#include "formats/PlainTextHTML.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>

namespace velmo {

namespace {

constexpr std::string_view pictureStart = "signature-";
constexpr std::string_view pictureEnd = "@velmo";
constexpr std::string_view pictureMark = "\uFFFC";

std::string textKey(const UUID& account) {
    return "signature." + account.text();
}

std::string piecesKey(const UUID& account) {
    return "signature.rich." + account.text();
}

bool hasPicture(const SignaturePiece& piece) {
    return piece.picture && !piece.picture->empty();
}

bool isBlank(const SignaturePiece& piece) {
    return !hasPicture(piece) && Signatures::cleaned(piece.text).empty();
}

/// A name, a number with "#", or a function with numbers; nothing that could end the declaration.
bool isColor(std::string_view color) {
    constexpr std::size_t longest = 64;
    return !color.empty() && color.size() <= longest && std::ranges::all_of(color, [](char c) {
        return text::isAlpha(c) || text::isDigit(c) || std::string_view("#(),.%/- ").find(c) != std::string_view::npos;
    });
}

std::string styleOf(const SignaturePiece& piece) {
    std::string style;
    const auto add = [&style](std::string_view declaration) {
        if (!style.empty()) style += ';';
        style += declaration;
    };
    if (piece.isBold) add("font-weight:bold");
    if (piece.isItalic) add("font-style:italic");
    if (piece.isUnderlined) add("text-decoration:underline");
    if (piece.color && isColor(*piece.color)) add("color:" + *piece.color);
    return style;
}

std::string textHTML(const SignaturePiece& piece) {
    std::string text = text::replacedAll(escapedHTML(piece.text), "\r\n", "\n");
    text = text::replacedAll(text, "\n", "<br>");
    const std::string style = styleOf(piece);
    return style.empty() ? text : fmt::format("<span style=\"{}\">{}</span>", style, text);
}

/// An unknown size is left out, since a picture of the size 0 would not be seen.
std::string sizeAttribute(std::string_view name, double points) {
    constexpr double largest = 100'000;
    if (!(points >= 0.5)) return {};
    return fmt::format(" {}=\"{}\"", name, std::lround(std::min(points, largest)));
}

std::string pictureHTML(const SignaturePiece& piece, const InlinePicture& picture) {
    return fmt::format("<img src=\"cid:{}\"{}{}>", picture.contentID, sizeAttribute("width", piece.width),
                       sizeAttribute("height", piece.height));
}

std::string linked(std::string html, const SignaturePiece& piece) {
    if (!piece.link || piece.link->empty()) return html;
    return fmt::format("<a href=\"{}\">{}</a>", escapedAttribute(*piece.link), html);
}

}

std::optional<std::string> Signatures::signature(const UUID& account) const {
    std::string text = cleaned(settings_.text(textKey(account)).value_or(""));
    if (text.empty()) return std::nullopt;
    return text;
}

std::optional<std::vector<SignaturePiece>> Signatures::richSignature(const UUID& account) const {
    const auto data = settings_.data(piecesKey(account));
    if (!data) return std::nullopt;
    auto pieces = signaturePiecesFromJSON(*data);
    if (!pieces || pieces->empty()) return std::nullopt;
    return pieces;
}

void Signatures::save(std::string_view text, const std::vector<SignaturePiece>& pieces, const UUID& account) {
    const std::string plain = cleaned(text);
    if (plain.empty())
        settings_.remove(textKey(account));
    else
        settings_.setText(textKey(account), plain);
    if (std::ranges::all_of(pieces, isBlank))
        settings_.remove(piecesKey(account));
    else
        settings_.setData(piecesKey(account), signaturePiecesJSON(pieces));
}

void Signatures::remove(const UUID& account) {
    settings_.remove(textKey(account));
    settings_.remove(piecesKey(account));
}

std::string Signatures::cleaned(std::string_view text) {
    const std::string unmarked = text::replacedAll(text, pictureMark, "");
    return std::string(text::trimmedUnicode(unmarked));
}

HTMLWithPictures Signatures::html(const std::vector<SignaturePiece>& pieces) {
    HTMLWithPictures signature;
    for (const auto& piece : pieces) {
        if (!hasPicture(piece)) {
            signature.html += linked(textHTML(piece), piece);
            continue;
        }
        signature.pictures.push_back(picture(*piece.picture, signature.pictures.size()));
        signature.html += linked(pictureHTML(piece, signature.pictures.back()), piece);
    }
    return signature;
}

InlinePicture Signatures::picture(BytesView data, std::size_t index) {
    return {.contentID = fmt::format("{}{}{}", pictureStart, index, pictureEnd),
            .mimeType = data.starts_with("\xFF\xD8\xFF") ? "image/jpeg" : "image/png",
            .data = Bytes(data)};
}

bool Signatures::isPicture(std::string_view contentID) {
    return contentID.starts_with(pictureStart) && contentID.ends_with(pictureEnd);
}

}
