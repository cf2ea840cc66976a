#include "formats/TransferEncoding.h"

#include "base/Text.h"
#include "formats/StructuredValue.h"

#include <array>
#include <bit>
#include <cstdint>
#include <cstring>

namespace velmo {

namespace {

// --- base64 ----------------------------------------------------------------------------------------------------

constexpr std::string_view alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::uint32_t notInAlphabet = 0x8000'0000U;

using Places = std::array<std::uint32_t, 256>;

/// For each of the four places in a group, what a letter contributes to the group's 24 bits.
constexpr std::array<Places, 4> contributions = [] {
    std::array<Places, 4> tables{};
    for (unsigned place = 0; place < 4; ++place) {
        tables[place].fill(notInAlphabet);
        for (std::uint32_t value = 0; value < alphabet.size(); ++value)
            tables[place][static_cast<unsigned char>(alphabet[value])] = value << (18 - 6 * place);
    }
    return tables;
}();

std::uint32_t group(const char* p) {
    return contributions[0][static_cast<unsigned char>(p[0])] | contributions[1][static_cast<unsigned char>(p[1])] |
           contributions[2][static_cast<unsigned char>(p[2])] | contributions[3][static_cast<unsigned char>(p[3])];
}

/// Writes three bytes; may touch a fourth.
void store(char* out, std::uint32_t bits) {
    bits <<= 8;
    if constexpr (std::endian::native == std::endian::little) bits = __builtin_bswap32(bits);
    std::memcpy(out, &bits, sizeof bits);
}

class Base64Decoder {
  public:
    Base64Decoder(BytesView data, char* out) : next_(data.data()), end_(next_ + data.size()), out_(out) {}

    /// The end of what was written.
    char* decode() {
        do {
            takeWholeGroups();
        } while (takeBrokenGroup());
        return out_;
    }

  private:
    void takeWholeGroups() {
        const char* p = next_;
        char* out = out_;
        for (; end_ - p >= 4; p += 4, out += 3) {
            const std::uint32_t bits = group(p);
            if ((bits & notInAlphabet) != 0) break;
            store(out, bits);
        }
        next_ = p;
        out_ = out;
    }

    /// Takes a group with other characters in it, padding or the end of the data. False when nothing follows: behind
    /// padding there may be a text that somebody on the way has added.
    bool takeBrokenGroup() {
        std::uint32_t bits = 0;
        unsigned letters = 0;
        bool isPadded = false;
        while (next_ != end_ && letters < 4 && !isPadded) {
            const char c = *next_++;
            const std::uint32_t value = contributions[3][static_cast<unsigned char>(c)];
            if (value != notInAlphabet) {
                bits = bits << 6 | value;
                ++letters;
            }
            isPadded = c == '=' && letters > 0;
        }
        bits <<= 6 * (4 - letters);
        for (unsigned i = 0; i + 1 < letters; ++i) *out_++ = static_cast<char>(bits >> (16 - 8 * i) & 0xFF);
        return letters == 4 && next_ != end_;
    }

    const char* next_;
    const char* end_;
    char* out_;
};

// --- quoted-printable ------------------------------------------------------------------------------------------

/// Decodes what follows a "=" at `p`, and moves `p` behind it. Gives where the output ends then.
char* takeEscape(const char*& p, const char* end, char* out) {
    const auto left = end - p;
    if (left > 1 && p[1] == '\n') {
        p += 2;
        return out;
    }
    if (left > 2) {
        if (p[1] == '\r' && p[2] == '\n') {
            p += 3;
            return out;
        }
        const int high = text::hexValue(p[1]), low = text::hexValue(p[2]);
        if (high >= 0 && low >= 0) {
            p += 3;
            *out = static_cast<char>(high * 16 + low);
            return out + 1;
        }
    }
    ++p;
    *out = '=';
    return out + 1;
}

char* decodeQuotedPrintable(BytesView data, char* out) {
    const char* p = data.data();
    const char* const end = p + data.size();
    while (p != end) {
        const auto left = static_cast<std::size_t>(end - p);
        const void* found = std::memchr(p, '=', left);
        const auto plain = found == nullptr ? left : static_cast<std::size_t>(static_cast<const char*>(found) - p);
        std::memcpy(out, p, plain);
        p += plain;
        out += plain;
        // Text in another script is one escape after another.
        while (p != end && *p == '=') out = takeEscape(p, end, out);
    }
    return out;
}

}

TransferEncoding transferEncoding(std::string_view label) {
    const std::string plain = withoutComments(label);
    label = text::trimmed(plain, " \t\r\n\"");
    if (text::equalsIgnoringCase(label, "base64")) return TransferEncoding::base64;
    if (text::equalsIgnoringCase(label, "quoted-printable")) return TransferEncoding::quotedPrintable;
    return TransferEncoding::identity;
}

Bytes decodeTransfer(BytesView data, TransferEncoding encoding) {
    switch (encoding) {
    case TransferEncoding::base64: return decodeLenientBase64(data);
    case TransferEncoding::quotedPrintable: return decodeQuotedPrintable(data);
    case TransferEncoding::identity: break;
    }
    return Bytes(data);
}

Bytes decodeTransfer(BytesView data, std::string_view label) {
    return decodeTransfer(data, transferEncoding(label));
}

Bytes decodeQuotedPrintable(BytesView data) {
    Bytes out;
    out.resize_and_overwrite(data.size(), [&](char* buffer, std::size_t) {
        return static_cast<std::size_t>(decodeQuotedPrintable(data, buffer) - buffer);
    });
    return out;
}

Bytes decodeLenientBase64(BytesView data) {
    constexpr std::size_t spareForWholeWords = 4;
    Bytes out;
    out.resize_and_overwrite(data.size() / 4 * 3 + spareForWholeWords, [&](char* buffer, std::size_t) {
        return static_cast<std::size_t>(Base64Decoder(data, buffer).decode() - buffer);
    });
    return out;
}

}
