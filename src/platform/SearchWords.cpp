#include "platform/SearchWords.h"

#include "base/Text.h"

#include <unicode/normalizer2.h>
#include <unicode/uchar.h>

namespace velmo {

namespace {

constexpr std::size_t mostWords = 8;

constexpr bool isASCIIWordCharacter(char c) {
    return text::isAlpha(c) || text::isDigit(c);
}

/// Belongs to a letter without being one: the accents that follow Latin letters.
constexpr bool isAccent(char32_t c) {
    return c >= 0x300 && c <= 0x36F;
}

bool isWordCharacter(char32_t c) {
    const auto kind = U_GET_GC_MASK(static_cast<UChar32>(c));
    return (kind & (U_GC_L_MASK | U_GC_N_MASK | U_GC_CO_MASK)) != 0;
}

/// The base letter of a Latin letter with accents; any other character stays.
char32_t withoutAccents(char32_t c) {
    UErrorCode status = U_ZERO_ERROR;
    const auto* decomposer = icu::Normalizer2::getNFDInstance(status);
    icu::UnicodeString parts;
    if (U_FAILURE(status) || !decomposer->getDecomposition(static_cast<UChar32>(c), parts)) return c;
    const auto base = static_cast<char32_t>(parts.char32At(0));
    return base < 0x80 && isASCIIWordCharacter(static_cast<char>(base)) ? base : c;
}

}

std::string_view SearchWordReader::next() {
    word_.clear();
    while (position_ < text_.size()) {
        const char byte = text_[position_];
        if (isASCIIWordCharacter(byte)) {
            word_ += text::lower(byte);
            ++position_;
            continue;
        }
        if (static_cast<unsigned char>(byte) < 0x80) {
            ++position_;
            if (!word_.empty()) break;
            continue;
        }
        const char32_t c = text::nextCodePoint(text_, position_);
        if (isAccent(c)) continue;
        if (isWordCharacter(c)) {
            const auto folded = u_foldCase(static_cast<UChar32>(withoutAccents(c)), U_FOLD_CASE_DEFAULT);
            text::appendUTF8(word_, static_cast<char32_t>(folded));
        } else if (!word_.empty()) {
            break;
        }
    }
    return word_;
}

SearchTerms::SearchTerms(std::string_view utf8) {
    SearchWordReader reader(utf8);
    for (auto word = reader.next(); !word.empty() && words_.size() < mostWords; word = reader.next())
        words_.emplace_back(word);
}

bool SearchTerms::Match::add(std::string_view utf8) {
    const auto& words = terms_.words();
    const std::uint32_t all = (std::uint32_t{1} << words.size()) - 1;
    SearchWordReader reader(utf8);
    while (found_ != all) {
        const auto word = reader.next();
        if (word.empty()) break;
        for (std::size_t i = 0; i < words.size(); ++i) {
            if (word.starts_with(words[i])) found_ |= std::uint32_t{1} << i;
        }
    }
    return found_ == all;
}

}
