#pragma once

#include "compose/HTMLWithPictures.h"
#include "compose/SignaturePiece.h"
#include "platform/Settings.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velmo {

/// The signature of each account, kept in the settings in two forms: plain text under "signature.{UUID}", and styled
/// pieces under "signature.rich.{UUID}".
///
/// Every operation may be called from any thread; those that change something throw FileError when it cannot be kept.
class Signatures {
  public:
    /// The settings outlive this object.
    explicit Signatures(Settings& settings) : settings_(settings) {}

    /// The plain text, cleaned; absent when nothing is left of it.
    std::optional<std::string> signature(const UUID& account) const;

    /// The pieces; absent when there are none, or when they cannot be read.
    std::optional<std::vector<SignaturePiece>> richSignature(const UUID& account) const;

    /// Keeps both forms. A form that is empty leaves no value behind.
    void save(std::string_view text, const std::vector<SignaturePiece>& pieces, const UUID& account);

    /// For an account that goes.
    void remove(const UUID& account);

    /// Text without the marks that an editor leaves for pictures, and without white space at its ends.
    static std::string cleaned(std::string_view text);

    /// The HTML of a signature. Whatever the pieces hold, none of them leaves its place: text stays text, and the value
    /// of an attribute stays in it. A color that is none by its characters is left out.
    static HTMLWithPictures html(const std::vector<SignaturePiece>& pieces);

    /// A picture of a signature by its place among the pictures, counted from 0.
    static InlinePicture picture(BytesView data, std::size_t index);

    /// True for the content ID of a signature's picture, as `picture` makes it.
    static bool isPicture(std::string_view contentID);

  private:
    Settings& settings_;
};

}
