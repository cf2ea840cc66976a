#include "compose/SignaturePiece.h"

#include "base/Text.h"

#include <nlohmann/json.hpp>

namespace velmo {

using nlohmann::json;

namespace {

json jsonOf(const SignaturePiece& piece) {
    json object{{"text", piece.text},         {"isBold", piece.isBold},
                {"isItalic", piece.isItalic}, {"isUnderlined", piece.isUnderlined},
                {"width", piece.width},       {"height", piece.height}};
    if (piece.color) object["color"] = *piece.color;
    if (piece.link) object["link"] = *piece.link;
    if (piece.picture) object["picture"] = text::base64(*piece.picture);
    return object;
}

/// Takes the value of a key into a field, which stays as it is when the key is missing. False for another type.
bool read(const json& object, const char* key, std::string& field) {
    const auto found = object.find(key);
    if (found == object.end() || found->is_null()) return true;
    if (!found->is_string()) return false;
    field = found->get<std::string>();
    return true;
}

bool read(const json& object, const char* key, std::optional<std::string>& field) {
    std::string value;
    if (!read(object, key, value)) return false;
    if (object.contains(key) && !object[key].is_null()) field = std::move(value);
    return true;
}

bool read(const json& object, const char* key, bool& field) {
    const auto found = object.find(key);
    if (found == object.end() || found->is_null()) return true;
    if (!found->is_boolean()) return false;
    field = found->get<bool>();
    return true;
}

bool read(const json& object, const char* key, double& field) {
    const auto found = object.find(key);
    if (found == object.end() || found->is_null()) return true;
    if (!found->is_number()) return false;
    field = found->get<double>();
    return true;
}

std::optional<SignaturePiece> pieceOf(const json& object) {
    SignaturePiece piece;
    std::optional<std::string> picture;
    const bool isWhole = object.is_object() && read(object, "text", piece.text) &&
                         read(object, "isBold", piece.isBold) && read(object, "isItalic", piece.isItalic) &&
                         read(object, "isUnderlined", piece.isUnderlined) && read(object, "color", piece.color) &&
                         read(object, "link", piece.link) && read(object, "picture", picture) &&
                         read(object, "width", piece.width) && read(object, "height", piece.height);
    if (!isWhole) return std::nullopt;
    if (!picture) return piece;
    piece.picture = text::decodedBase64(*picture);
    if (!piece.picture) return std::nullopt;
    return piece;
}

}

Bytes signaturePiecesJSON(const std::vector<SignaturePiece>& pieces) {
    json array = json::array();
    for (const auto& piece : pieces) array.push_back(jsonOf(piece));
    return array.dump(-1, ' ', false, json::error_handler_t::replace);
}

std::optional<std::vector<SignaturePiece>> signaturePiecesFromJSON(BytesView data) {
    const json array = json::parse(data, nullptr, false);
    if (!array.is_array()) return std::nullopt;
    std::vector<SignaturePiece> pieces;
    for (const auto& object : array) {
        auto piece = pieceOf(object);
        if (!piece) return std::nullopt;
        pieces.push_back(std::move(*piece));
    }
    return pieces;
}

}
