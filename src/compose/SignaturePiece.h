#pragma once

#include "base/Bytes.h"

#include <optional>
#include <string>
#include <vector>

namespace velmo {

/// A run of equally styled text of a signature, or a picture in it.
struct SignaturePiece {
    std::string text; ///< UTF-8; empty where there is a picture
    bool isBold = false;
    bool isItalic = false;
    bool isUnderlined = false;
    std::optional<std::string> color = {}; ///< as in CSS
    std::optional<std::string> link = {};  ///< a URL
    std::optional<Bytes> picture = {};     ///< PNG or JPEG
    double width = 0;                      ///< of the picture, in points; 0 when unknown
    double height = 0;

    friend bool operator==(const SignaturePiece&, const SignaturePiece&) = default;
};

/// Pieces as they are stored: a JSON array of objects whose keys are the names above; a picture is a base64 text, and
/// what is absent has no key.
Bytes signaturePiecesJSON(const std::vector<SignaturePiece>& pieces);

/// Reads it. A missing key means the default of its field; absent when anything has another type.
std::optional<std::vector<SignaturePiece>> signaturePiecesFromJSON(BytesView data);

}
