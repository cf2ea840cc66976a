#include "formats/HeaderWords.h"

#include "base/Text.h"
#include "formats/ForwardSearch.h"
#include "formats/TextDecoding.h"
#include "formats/TransferEncoding.h"

#include <algorithm>
#include <optional>
#include <utility>
#include <vector>

namespace velmo {

namespace {

constexpr auto npos = std::string_view::npos;

/// Padding says nothing that the letters do not say, and many leave it out or give too much.
std::optional<Bytes> decodedB(std::string_view payload) {
    // Most words that are none fail here, before anything is allocated.
    auto letters = std::min(payload.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz"
                                                      "0123456789+/"),
                            payload.size());
    if (payload.find_first_not_of('=', letters) != npos) return std::nullopt;
    if (letters == 1) return std::nullopt;
    if (letters % 4 == 1) --letters;
    std::string padded(payload.substr(0, letters));
    padded.append((4 - padded.size() % 4) % 4, '=');
    return text::decodedBase64(padded);
}

Bytes decodedQ(std::string_view payload) {
    std::string blanks(payload);
    std::ranges::replace(blanks, '_', ' ');
    return decodeQuotedPrintable(blanks);
}

/// An encoded word as it stands (RFC 2047 §2).
struct EncodedWord {
    std::string_view charset;
    char encoding = 'Q';
    std::string_view payload;
};

bool isASCII(std::string_view text) {
    return std::ranges::all_of(text, [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

/// Characters that stand in a word as they are were decoded with the head already; only what is between them is in the
/// charset of the word.
std::string decodedAround(std::string_view payload, std::string_view charset) {
    std::string out;
    while (!payload.empty()) {
        const auto isHigh = [](char c) { return static_cast<unsigned char>(c) >= 0x80; };
        const auto plain = static_cast<std::size_t>(std::ranges::find_if(payload, isHigh) - payload.begin());
        out += decodeText(decodedQ(payload.substr(0, plain)), charset);
        payload.remove_prefix(plain);
        const auto high = static_cast<std::size_t>(std::ranges::find_if_not(payload, isHigh) - payload.begin());
        out += payload.substr(0, high);
        payload.remove_prefix(high);
    }
    return out;
}

/// Words that follow each other in one charset. A sender who counts bytes may cut a character in two.
class WordRun {
  public:
    bool takes(std::string_view charset) const {
        return !pieces_.empty() && text::equalsIgnoringCase(charset_, charset);
    }

    void add(std::string_view charset, Bytes bytes) {
        charset_ = charset;
        pieces_.push_back(std::move(bytes));
    }

    std::string taken() {
        const auto pieces = std::exchange(pieces_, {});
        const auto encoding = charsetEncoding(charset_);
        std::string out;
        Bytes joined;
        bool areWhole = true;
        for (const auto& piece : pieces) {
            const auto text = encoding && areWhole ? encoding->decoded(piece) : std::nullopt;
            areWhole = text.has_value();
            if (text) out += *text;
            joined += piece;
        }
        return areWhole ? out : decodeText(joined, charset_);
    }

  private:
    std::string_view charset_;
    std::vector<Bytes> pieces_;
};

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
            const bool isBetweenWords = word && afterWord_ && isBlank(literal);
            if (!isBetweenWords) {
                out_ += run_.taken();
                out_ += literal;
            }
            if (start == npos) return std::move(out_);
            afterWord_ = word.has_value();
            if (word) {
                take(*word);
                continue;
            }
            out_ += "=?";
            position_ = start + 2;
        }
    }

  private:
    static bool isBlank(std::string_view text) { return text::trimmedUnicode(text).empty(); }

    /// The word at the position, which moves behind it; absent when there is none.
    std::optional<EncodedWord> takeWord() {
        const auto charsetEnd = text_.find('?', position_ + 2);
        const auto encodingEnd = charsetEnd == npos ? npos : text_.find('?', charsetEnd + 1);
        if (encodingEnd == npos) return std::nullopt;
        const auto encoding = text_.substr(charsetEnd + 1, encodingEnd - charsetEnd - 1);
        if (encoding.size() != 1) return std::nullopt;
        const auto payloadEnd =
            terminator_.from(encodingEnd + 1, [&](std::size_t from) { return text_.find("?=", from); });
        if (payloadEnd == npos) return std::nullopt;
        EncodedWord word;
        // RFC 2231 §5: a language may follow the charset.
        word.charset = text_.substr(position_ + 2, charsetEnd - position_ - 2);
        word.charset = word.charset.substr(0, word.charset.find('*'));
        word.encoding = text::upper(encoding[0]);
        word.payload = text_.substr(encodingEnd + 1, payloadEnd - encodingEnd - 1);
        if (word.encoding != 'Q' && (word.encoding != 'B' || !decodedB(word.payload))) return std::nullopt;
        position_ = payloadEnd + 2;
        return word;
    }

    void take(const EncodedWord& word) {
        if (!run_.takes(word.charset)) out_ += run_.taken();
        if (!isASCII(word.payload)) {
            out_ += run_.taken();
            out_ += decodedAround(word.payload, word.charset);
        } else {
            run_.add(word.charset, word.encoding == 'B' ? *decodedB(word.payload) : decodedQ(word.payload));
        }
    }

    std::string_view text_;
    std::size_t position_ = 0;
    ForwardSearch terminator_; // many broken words may run to the same one
    bool afterWord_ = false;
    WordRun run_;
    std::string out_;
};

}

std::string decodeHeaderWords(std::string_view text) {
    if (text.find("=?") == npos) return std::string(text);
    return WordReader(text).decoded();
}

}
