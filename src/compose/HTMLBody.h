#pragma once

#include "compose/HTMLWithPictures.h"
#include "compose/SignaturePiece.h"

#include <string_view>
#include <vector>

namespace velmo {

/// The HTML form of the text of a message: lines as "<div>", quotes as "<blockquote>", the signature in a "<div>" of
/// class "velmo-signature".
///
/// Where the plain signature stands in the body, its styled form is put in its place. A signature that the person has
/// changed in the body goes out as changed, and one that has been deleted does not go out. A styled signature without
/// any text, pictures alone, has nothing in the body to go by: it stands in front of the quote.
/// Takes any UTF-8 with LF or CR LF between lines; linear in its input.
HTMLWithPictures htmlBody(std::string_view body, std::string_view plainSignature,
                          const std::vector<SignaturePiece>& styledSignature);

}
