#include "formats/HeaderWords.h"

#include "base/Text.h"
#include "formats/ForwardSearch.h"
#include "formats/TextDecoding.h"
#include "formats/TransferEncoding.h"

#include <algorithm>
#include <optional>

namespace velmo {

namespace {

constexpr auto npos = std::string_view::npos;

std::optional<Bytes> decodedB(std::string_view payload) {
    // Most words that are none fail here, before anything is allocated.
    const auto letters = std::min(payload.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz"
                                                            "0123456789+/"),
                                  payload.size());
    if (payload.find_first_not_of('=', letters) != npos) return std::nullopt;
    std::string padded(payload);
    padded.append((4 - padded.size() % 4) % 4, '=');
    return text::decodedBase64(padded);
}

Bytes decodedQ(std::string_view payload) {
    std::string blanks(payload);
    std::ranges::replace(blanks, '_', ' ');
    return decodeQuotedPrintable(blanks);
}

/// Walks over a header value, from one "=?" to the next.
class WordReader {
  public:
    explicit WordReader(std::string_view text) : text_(text) {}

    std::string decoded() {
        for (;;) {
            const auto start = text_.find("=?", position_);
            const auto literal = text_.substr(position_, start - position_);
            position_ = start;
            const auto word = start == npos ? std::nullopt : takeWord();
            if (!(word && afterWord_ && isBlank(literal))) out_ += literal;
            if (start == npos) return std::move(out_);
            out_ += word ? *word : "=?";
            afterWord_ = word.has_value();
            if (!word) position_ = start + 2;
        }
    }

  private:
    static bool isBlank(std::string_view text) { return text::trimmedUnicode(text).empty(); }

    /// Decodes the word at the position and moves behind it; absent when it is none.
    std::optional<std::string> takeWord() {
        const auto charsetEnd = text_.find('?', position_ + 2);
        const auto encodingEnd = charsetEnd == npos ? npos : text_.find('?', charsetEnd + 1);
        if (encodingEnd == npos) return std::nullopt;
        const auto encoding = text_.substr(charsetEnd + 1, encodingEnd - charsetEnd - 1);
        if (encoding.size() != 1) return std::nullopt;
        const auto payloadEnd =
            terminator_.from(encodingEnd + 1, [&](std::size_t from) { return text_.find("?=", from); });
        if (payloadEnd == npos) return std::nullopt;
        const auto payload = text_.substr(encodingEnd + 1, payloadEnd - encodingEnd - 1);
        std::optional<Bytes> bytes;
        if (text::upper(encoding[0]) == 'B') bytes = decodedB(payload);
        if (text::upper(encoding[0]) == 'Q') bytes = decodedQ(payload);
        if (!bytes) return std::nullopt;
        // RFC 2231 §5: a language may follow the charset.
        auto charset = text_.substr(position_ + 2, charsetEnd - position_ - 2);
        charset = charset.substr(0, charset.find('*'));
        position_ = payloadEnd + 2;
        return decodeText(*bytes, charset);
    }

    std::string_view text_;
    std::size_t position_ = 0;
    ForwardSearch terminator_; // many broken words may run to the same one
    bool afterWord_ = false;
    std::string out_;
};

}

std::string decodeHeaderWords(std::string_view text) {
    if (text.find("=?") == npos) return std::string(text);
    return WordReader(text).decoded();
}

}
