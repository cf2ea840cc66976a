#include "formats/TransferEncoder.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>

namespace velmo {

namespace {

constexpr std::string_view lineEnd = "\r\n";

// --- Quoted-printable --------------------------------------------------------------------------------------------

/// Characters of an encoded line in front of the "=" that continues it.
constexpr std::size_t lineRoom = 75;

constexpr bool standsForItself(unsigned char byte) {
    return byte >= 32 && byte <= 126 && byte != '=';
}

constexpr auto plainBytes = [] {
    std::array<bool, 256> plain{};
    for (std::size_t byte = 0; byte < plain.size(); ++byte)
        plain[byte] = standsForItself(static_cast<unsigned char>(byte));
    return plain;
}();

constexpr auto encodedBytes = [] {
    constexpr std::string_view digits = "0123456789ABCDEF";
    std::array<std::array<char, 3>, 256> all{};
    for (std::size_t byte = 0; byte < all.size(); ++byte) all[byte] = {'=', digits[byte >> 4U], digits[byte & 15U]};
    return all;
}();

/// Collects one encoded line at a time.
class LineWriter {
  public:
    explicit LineWriter(Bytes& out) : out_(out) {}

    void plain(std::string_view run) {
        while (!run.empty()) {
            if (used_ == lineRoom) breakSoftly();
            const std::size_t count = std::min(run.size(), lineRoom - used_);
            std::memcpy(line_.data() + used_, run.data(), count);
            used_ += count;
            run.remove_prefix(count);
        }
    }

    void encoded(char byte) {
        const auto& token = encodedBytes[static_cast<unsigned char>(byte)];
        if (used_ + token.size() > lineRoom) breakSoftly();
        std::memcpy(line_.data() + used_, token.data(), token.size());
        used_ += token.size();
    }

    /// Ends the line in `ending`; "" behind the last one.
    void endLine(std::string_view ending) {
        out_.append(line_.data(), used_).append(ending);
        used_ = 0;
    }

  private:
    void breakSoftly() { endLine("=\r\n"); }

    Bytes& out_;
    std::array<char, lineRoom> line_{};
    std::size_t used_ = 0;
};

void writeLine(LineWriter& writer, std::string_view line) {
    const bool endsInBlank = !line.empty() && line.back() == ' ';
    if (endsInBlank) line.remove_suffix(1);
    for (std::size_t i = 0; i < line.size();) {
        const std::size_t start = i;
        while (i < line.size() && plainBytes[static_cast<unsigned char>(line[i])]) ++i;
        writer.plain(line.substr(start, i - start));
        while (i < line.size() && !plainBytes[static_cast<unsigned char>(line[i])]) writer.encoded(line[i++]);
    }
    if (endsInBlank) writer.encoded(' ');
}

// --- Base64 ------------------------------------------------------------------------------------------------------

constexpr std::size_t bytesOfLine = 57;
constexpr std::size_t charactersOfLine = 76;
constexpr std::string_view alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

/// The two characters of each twelve bits.
constexpr auto pairs = [] {
    std::array<std::array<char, 2>, 4096> all{};
    for (std::size_t bits = 0; bits < all.size(); ++bits) all[bits] = {alphabet[bits >> 6U], alphabet[bits & 63U]};
    return all;
}();

char* writeGroups(char* out, const unsigned char* data, std::size_t groups) {
    for (std::size_t i = 0; i < groups; ++i, data += 3, out += 4) {
        const std::uint32_t bits = std::uint32_t{data[0]} << 16U | std::uint32_t{data[1]} << 8U | data[2];
        std::memcpy(out, pairs[bits >> 12U].data(), 2);
        std::memcpy(out + 2, pairs[bits & 4095U].data(), 2);
    }
    return out;
}

/// The one or two bytes behind the last whole group.
char* writeRest(char* out, const unsigned char* data, std::size_t count) {
    const std::uint32_t bits = std::uint32_t{data[0]} << 16U | (count > 1 ? std::uint32_t{data[1]} << 8U : 0U);
    std::memcpy(out, pairs[bits >> 12U].data(), 2);
    out[2] = count > 1 ? alphabet[bits >> 6U & 63U] : '=';
    out[3] = '=';
    return out + 4;
}

}

void appendQuotedPrintable(Bytes& out, std::string_view text) {
    LineWriter writer(out);
    while (true) {
        const auto end = text.find('\n');
        if (end == std::string_view::npos) break;
        const std::string_view line = text.substr(0, end);
        writeLine(writer, line.ends_with('\r') ? line.substr(0, line.size() - 1) : line);
        writer.endLine(lineEnd);
        text.remove_prefix(end + 1);
    }
    writeLine(writer, text);
    writer.endLine({});
}

std::size_t lengthInBase64Lines(std::size_t bytes) {
    if (bytes == 0) return 0;
    const std::size_t characters = (bytes + 2) / 3 * 4;
    return characters + (characters - 1) / charactersOfLine * lineEnd.size();
}

void appendBase64Lines(Bytes& out, BytesView data) {
    const std::size_t held = out.size();
    out.resize(held + lengthInBase64Lines(data.size()));
    char* to = out.data() + held;
    const auto* from = reinterpret_cast<const unsigned char*>(data.data());
    std::size_t rest = data.size();
    for (; rest > bytesOfLine; rest -= bytesOfLine, from += bytesOfLine) {
        to = writeGroups(to, from, bytesOfLine / 3);
        to = std::ranges::copy(lineEnd, to).out;
    }
    to = writeGroups(to, from, rest / 3);
    if (rest % 3 != 0) writeRest(to, from + rest / 3 * 3, rest % 3);
}

}
