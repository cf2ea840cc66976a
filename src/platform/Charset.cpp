#include "platform/Charset.h"

#include "base/Text.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <memory>
#include <unicode/ucnv.h>
#include <unordered_map>

namespace velmo {

namespace {

constexpr char16_t unassigned = 0xFFFF;

// --- charsets of one byte a character --------------------------------------------------------------------------

/// What each byte from 0x80 up stands for; the lower half is ASCII.
using UpperHalf = std::array<char16_t, 128>;

constexpr std::array<char16_t, 32> windows1252Specials{
    0x20AC, unassigned, 0x201A,     0x0192, 0x201E,     0x2026,     0x2020, 0x2021,     0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152,     unassigned, 0x017D, unassigned, unassigned, 0x2018, 0x2019,     0x201C, 0x201D, 0x2022,
    0x2013, 0x2014,     0x02DC,     0x2122, 0x0161,     0x203A,     0x0153, unassigned, 0x017E, 0x0178};

enum class Unassigned { refused, control };

constexpr UpperHalf windows1252Half(Unassigned mode) {
    UpperHalf half{};
    for (std::size_t i = 0; i < half.size(); ++i) {
        const bool special =
            i < windows1252Specials.size() && (windows1252Specials[i] != unassigned || mode == Unassigned::refused);
        half[i] = special ? windows1252Specials[i] : static_cast<char16_t>(0x80 + i);
    }
    return half;
}

constexpr UpperHalf latinHalf = windows1252Half(Unassigned::control);
constexpr UpperHalf strictLatinHalf = windows1252Half(Unassigned::refused);

constexpr UpperHalf latin10Half = [] {
    UpperHalf half{};
    for (std::size_t i = 0; i < half.size(); ++i) half[i] = static_cast<char16_t>(0x80 + i);
    constexpr struct {
        unsigned char byte;
        char16_t character;
    } differences[] = {
        {0xA1, 0x0104}, {0xA2, 0x0105}, {0xA3, 0x0141}, {0xA4, 0x20AC}, {0xA5, 0x201E}, {0xA6, 0x0160}, {0xA8, 0x0161},
        {0xAA, 0x0218}, {0xAC, 0x0179}, {0xAE, 0x017A}, {0xAF, 0x017B}, {0xB2, 0x010C}, {0xB3, 0x0142}, {0xB4, 0x017D},
        {0xB5, 0x201D}, {0xB8, 0x017E}, {0xB9, 0x010D}, {0xBA, 0x0219}, {0xBC, 0x0152}, {0xBD, 0x0153}, {0xBE, 0x0178},
        {0xBF, 0x017C}, {0xC3, 0x0102}, {0xC5, 0x0106}, {0xD0, 0x0110}, {0xD1, 0x0143}, {0xD5, 0x0150}, {0xD7, 0x015A},
        {0xD8, 0x0170}, {0xDD, 0x0118}, {0xDE, 0x021A}, {0xE3, 0x0103}, {0xE5, 0x0107}, {0xF0, 0x0111}, {0xF1, 0x0144},
        {0xF5, 0x0151}, {0xF7, 0x015B}, {0xF8, 0x0171}, {0xFD, 0x0119}, {0xFE, 0x021B},
    };
    for (const auto& [byte, character] : differences) half[byte - 0x80U] = character;
    return half;
}();

std::optional<std::string> decodedBytewise(BytesView bytes, const UpperHalf& half) {
    std::string out;
    out.reserve(bytes.size() + bytes.size() / 4);
    const auto isASCII = [](char c) { return static_cast<unsigned char>(c) < 0x80; };
    for (const char* p = bytes.begin(); p != bytes.end();) {
        const char* end = std::find_if_not(p, bytes.end(), isASCII);
        out.append(p, end);
        for (p = end; p != bytes.end() && !isASCII(*p); ++p) {
            const char16_t character = half[static_cast<unsigned char>(*p) - 0x80U];
            if (character == unassigned) return std::nullopt;
            text::appendUTF8(out, character);
        }
    }
    return out;
}

// --- charsets of the converter library -------------------------------------------------------------------------

struct Closed {
    void operator()(UConverter* converter) const { ucnv_close(converter); }
};

/// A converter that stops at what it does not know.
struct Converter {
    std::unique_ptr<UConverter, Closed> handle;
    std::unique_ptr<const UpperHalf> half; // set where a table does the same work faster

    explicit Converter(const char* name) {
        UErrorCode status = U_ZERO_ERROR;
        handle.reset(ucnv_open(name, &status));
        if (U_FAILURE(status)) handle.reset();
        if (!handle) return;
        ucnv_setToUCallBack(handle.get(), UCNV_TO_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &status);
        if (ucnv_getType(handle.get()) == UCNV_SBCS) half = tabulated();
    }

    /// One unit of UTF-16 for a byte on its own, or `unassigned`.
    char16_t character(unsigned char byte) const {
        const char source = static_cast<char>(byte);
        std::array<UChar, 4> target{};
        UErrorCode status = U_ZERO_ERROR;
        ucnv_reset(handle.get());
        const auto count =
            ucnv_toUChars(handle.get(), target.data(), static_cast<std::int32_t>(target.size()), &source, 1, &status);
        return U_SUCCESS(status) && count == 1 ? target[0] : unassigned;
    }

    /// Absent when the lower half is not ASCII; some tables move control characters about, which mail never means.
    std::unique_ptr<const UpperHalf> tabulated() const {
        for (unsigned char byte = ' '; byte <= '~'; ++byte)
            if (character(byte) != byte) return nullptr;
        auto table = std::make_unique<UpperHalf>();
        for (std::size_t i = 0; i < table->size(); ++i) (*table)[i] = character(static_cast<unsigned char>(0x80 + i));
        return table;
    }
};

/// A converter holds state, so each thread has its own. `name` is canonical, so its address identifies it.
const Converter& converterOfThread(const char* name) {
    thread_local std::unordered_map<const char*, Converter> converters;
    return converters.try_emplace(name, name).first->second;
}

/// Joins the units of UTF-16 that come in any cuts to UTF-8.
class UTF16Reader {
  public:
    /// False at a surrogate without its other half.
    bool append(const UChar* unit, const UChar* end, std::string& out) {
        for (; unit != end; ++unit) {
            const char32_t c = *unit;
            const bool low = c >= 0xDC00 && c <= 0xDFFF;
            if (low != (high_ != 0)) return false;
            if (low)
                text::appendUTF8(out, 0x10000 + ((high_ - 0xD800) << 10) + (c - 0xDC00));
            else if (c < 0xD800 || c > 0xDBFF)
                text::appendUTF8(out, c);
            high_ = c >= 0xD800 && c <= 0xDBFF ? c : 0;
        }
        return true;
    }
    bool complete() const { return high_ == 0; }

  private:
    char32_t high_ = 0;
};

std::optional<std::string> decodedByLibrary(BytesView bytes, const char* name) {
    const Converter& converter = converterOfThread(name);
    if (!converter.handle) return std::nullopt;
    if (converter.half) return decodedBytewise(bytes, *converter.half);
    ucnv_reset(converter.handle.get());
    std::string out;
    out.reserve(bytes.size() + bytes.size() / 2);
    UTF16Reader reader;
    std::array<UChar, 2048> units;
    const char* source = bytes.data();
    const char* const end = source + bytes.size();
    UErrorCode status = U_BUFFER_OVERFLOW_ERROR;
    while (status == U_BUFFER_OVERFLOW_ERROR) {
        status = U_ZERO_ERROR;
        UChar* target = units.data();
        ucnv_toUnicode(converter.handle.get(), &target, units.data() + units.size(), &source, end, nullptr, true,
                       &status);
        if (!reader.append(units.data(), target, out)) return std::nullopt;
    }
    if (U_FAILURE(status) || !reader.complete()) return std::nullopt;
    return out;
}

// --- ISO-2022-JP -----------------------------------------------------------------------------------------------

constexpr const char* shiftJIS = "ibm-943_P15A-2003";
constexpr const char* libraryISO2022JP = "ISO_2022,locale=ja,version=2";

enum class JapaneseSet { ascii, kana, kanji };

/// The escape sequences of ISO-2022-JP as mail programs write it (RFC 1468, and JIS X 0201 katakana).
constexpr struct {
    std::string_view escape;
    JapaneseSet set;
} japaneseEscapes[] = {
    {"\x1B(B", JapaneseSet::ascii}, {"\x1B(J", JapaneseSet::ascii}, {"\x1B(I", JapaneseSet::kana},
    {"\x1B$@", JapaneseSet::kanji}, {"\x1B$B", JapaneseSet::kanji}, {"\x1B$(B", JapaneseSet::kanji},
};

/// A character of JIS X 0208 and its extensions, moved to its place in code page 932.
void appendShifted(Bytes& out, unsigned char row, unsigned char cell) {
    const unsigned lead = ((row - 0x21U) >> 1) + 0x81U;
    const unsigned trail = (row & 1U) != 0 ? cell + 0x1FU + (cell >= 0x60 ? 1U : 0U) : cell + 0x7EU;
    out += static_cast<char>(lead > 0x9F ? lead + 0x40U : lead);
    out += static_cast<char>(trail);
}

/// ISO-2022-JP rewritten in code page 932, which knows the characters that makers added to the standard's. Absent for
/// anything that takes other sets than those two.
std::optional<Bytes> shiftedJapanese(BytesView bytes) {
    Bytes out;
    out.reserve(bytes.size());
    auto set = JapaneseSet::ascii;
    for (std::size_t i = 0; i < bytes.size();) {
        const auto c = static_cast<unsigned char>(bytes[i]);
        if (c == 0x1B) {
            const auto* known = std::ranges::find_if(
                japaneseEscapes, [&](const auto& e) { return bytes.substr(i).starts_with(e.escape); });
            if (known == std::end(japaneseEscapes)) return std::nullopt;
            set = known->set;
            i += known->escape.size();
            continue;
        }
        if (c >= 0x80 || c == 0x0E || c == 0x0F) return std::nullopt;
        if (c == '\n') set = JapaneseSet::ascii;
        if (set == JapaneseSet::ascii || c <= 0x20 || c == 0x7F) {
            out += static_cast<char>(c);
            ++i;
        } else if (set == JapaneseSet::kana) {
            out += static_cast<char>(c | 0x80U);
            ++i;
        } else {
            const auto cell = i + 1 < bytes.size() ? static_cast<unsigned char>(bytes[i + 1]) : 0U;
            if (cell <= 0x20 || cell >= 0x7F) return std::nullopt;
            appendShifted(out, c, static_cast<unsigned char>(cell));
            i += 2;
        }
    }
    return out;
}

// --- labels ----------------------------------------------------------------------------------------------------

/// Labels of mail programs that the converter library does not know.
constexpr struct {
    std::string_view label;
    const char* known;
} additionalLabels[] = {
    {"win-1250", "windows-1250"}, {"win-1251", "windows-1251"},   {"win1251", "windows-1251"},
    {"eucjp-ms", "euc-jp"},       {"cp51932", "euc-jp"},          {"x-euc-jp", "euc-jp"},
    {"cp50220", "iso-2022-jp"},   {"cp50221", "iso-2022-jp"},     {"iso-2022-jp-ms", "iso-2022-jp"},
    {"x-gbk", "gb18030"},         {"gb_2312-80", "gb18030"},      {"x-euc-kr", "euc-kr"},
    {"x-windows-949", "euc-kr"},  {"iso-8859-8-e", "iso-8859-8"}, {"x-mac-romanian", "x-mac-centraleurroman"},
    {"utf8mb4", "utf-8"},         {"unicode", "utf-16"},          {"x-unicode-2-0-utf-8", "utf-8"},
    {"cn-gb", "gb18030"},         {"cn-big5", "big5-hkscs"},      {"big5_tw", "big5-hkscs"},
};

/// Charsets that mail means more by than their registration says.
constexpr struct {
    std::string_view registered;
    const char* meant;
} widenedCharsets[] = {
    {"ibm-1383_P110-1999", "gb18030"},                 // gb2312
    {"windows-936-2000", "gb18030"},                   // gbk
    {"ibm-1386_P100-2001", "gb18030"},                 // cp936
    {"ibm-5478_P100-1995", "gb18030"},                 // gb_2312-80
    {"ibm-970_P110_P110-2006_U2", "windows-949-2000"}, // euc-kr
    {"ibm-949_P110-1999", "windows-949-2000"},         // cp949
    {"ibm-950_P110-1999", "big5-hkscs"},               // cp950
    {"windows-950-2000", "big5-hkscs"},                // big5
    {"ibm-920_P100-1995", "ibm-5350_P100-1998"},       // iso-8859-9, read as windows-1254
    {"iso-8859_11-2001", "windows-874-2000"},          // iso-8859-11
};

/// The library ignores punctuation in labels, but takes a comma for the beginning of an option.
bool isPlausibleLabel(std::string_view label) {
    constexpr std::size_t longest = 50;
    const auto belongs = [](char c) {
        return text::isAlpha(c) || text::isDigit(c) || std::string_view{"-_.:+()"}.contains(c);
    };
    return !label.empty() && label.size() <= longest && std::ranges::all_of(label, belongs);
}

const char* canonicalName(const std::string& label) {
    UErrorCode status = U_ZERO_ERROR;
    const char* name = ucnv_getAlias(label.c_str(), 0, &status);
    return U_SUCCESS(status) ? name : nullptr;
}

}

Charset Charset::utf8() {
    return {Kind::utf8, nullptr};
}
Charset Charset::windows1252() {
    return {Kind::strictLatin, nullptr};
}

std::optional<Charset> Charset::named(std::string_view label) {
    if (text::equalsIgnoringCase(label, "utf-8")) return utf8();
    if (!isPlausibleLabel(label)) return std::nullopt;
    std::string lowered = text::lowered(label);
    const auto* additional = std::ranges::find(additionalLabels, lowered, [](const auto& a) { return a.label; });
    if (additional != std::end(additionalLabels)) lowered = additional->known;
    if (lowered == "iso-8859-16") return Charset{Kind::latin10, nullptr};
    const char* name = canonicalName(lowered);
    if (name == nullptr) return std::nullopt;
    constexpr struct {
        std::string_view name;
        Kind kind;
    } ownKinds[] = {
        {"UTF-8", Kind::utf8},
        {"US-ASCII", Kind::ascii},
        {"ISO-8859-1", Kind::latin},
        {"ibm-5348_P100-1997", Kind::latin}, // windows-1252
        {"ISO_2022,locale=ja,version=0", Kind::japaneseShifts},
        {"ISO_2022,locale=ja,version=1", Kind::japaneseShifts},
        {"ISO_2022,locale=ja,version=2", Kind::japaneseShifts},
    };
    for (const auto& own : ownKinds)
        if (own.name == name) return Charset{own.kind, nullptr};
    for (const auto& widened : widenedCharsets)
        if (widened.registered == name) name = canonicalName(widened.meant);
    // Some names are known without the data to convert by.
    if (name == nullptr || !converterOfThread(name).handle) return std::nullopt;
    return Charset{Kind::library, name};
}

std::optional<std::string> Charset::decoded(BytesView bytes) const {
    switch (kind_) {
    case Kind::ascii:
        if (std::ranges::any_of(bytes, [](char c) { return static_cast<unsigned char>(c) >= 0x80; }))
            return std::nullopt;
        return std::string(bytes);
    case Kind::utf8:
        if (!text::isValidUTF8(bytes)) return std::nullopt;
        return std::string(bytes);
    case Kind::latin: return decodedBytewise(bytes, latinHalf);
    case Kind::strictLatin: return decodedBytewise(bytes, strictLatinHalf);
    case Kind::latin10: return decodedBytewise(bytes, latin10Half);
    case Kind::japaneseShifts: {
        const auto shifted = shiftedJapanese(bytes);
        return shifted ? decodedByLibrary(*shifted, shiftJIS) : decodedByLibrary(bytes, libraryISO2022JP);
    }
    case Kind::library: return decodedByLibrary(bytes, converter_);
    }
    return std::nullopt;
}

}
