#include "bench/OutgoingBenchmark.h"

#include "bench/Timing.h"
#include "formats/OutgoingMessage.h"
#include "formats/TransferEncoder.h"

#include <algorithm>
#include <limits>
#include <openssl/evp.h>
#include <random>
#include <stdexcept>

namespace velmo::bench {

namespace {

constexpr int rounds = 9;
constexpr std::size_t attachmentCount = 4;
constexpr std::size_t attachmentSize = 5'000'000;
constexpr std::size_t textSize = 20'000'000;

template <class Work>
double fastest(Work work) {
    double best = std::numeric_limits<double>::max();
    for (int i = 0; i < rounds; ++i) best = std::min(best, secondsOf(work));
    return best;
}

Bytes randomBytes(std::size_t size) {
    std::mt19937 random(1);
    Bytes bytes(size, '\0');
    std::ranges::generate(bytes, [&random] { return static_cast<char>(random()); });
    return bytes;
}

/// Lines as people write them, with a word here and there that ASCII does not hold.
std::string someText() {
    std::string text;
    for (int line = 0; text.size() < textSize; ++line) {
        text += "The minutes of our meeting are in the attached file, and the next one is on Tuesday.";
        text += line % 4 == 0 ? " Viele Grüße\n" : "\n";
    }
    return text;
}

Row buildRow() {
    OutgoingMessage message({"Ada", "ada@example.org"}, Date{});
    const Bytes data = randomBytes(attachmentSize);
    for (std::size_t i = 0; i < attachmentCount; ++i)
        message.attachments.push_back({UUID(), "data.bin", "application/octet-stream", data});
    std::size_t length = 0;
    const double ours = fastest([&] { length = message.build().size(); });
    std::vector<Bytes> encoded(attachmentCount);
    const double peer = fastest([&] {
        for (std::size_t i = 0; i < attachmentCount; ++i) {
            encoded[i] = Bytes(attachmentSize / 3 * 4 + 8, '\0');
            EVP_EncodeBlock(reinterpret_cast<unsigned char*>(encoded[i].data()),
                            reinterpret_cast<const unsigned char*>(message.attachments[i].data.data()),
                            static_cast<int>(attachmentSize));
        }
    });
    if (length < attachmentCount * attachmentSize) throw std::runtime_error("the built message is too short");
    return {
        "build a message with 20 MB attached, against base64", ours * 1e3, peer * 1e3, "ms", 1.5, Row::Better::lower};
}

std::vector<Row> quotedPrintableRows() {
    const std::string text = someText();
    Bytes encoded, copy;
    encoded.reserve(text.size() * 2);
    const auto rate = [&text](double seconds) { return static_cast<double>(text.size()) / 1e6 / seconds; };
    const double ours = rate(fastest([&] {
        encoded.clear();
        appendQuotedPrintable(encoded, text);
    }));
    copy.reserve(text.size());
    const double peer = rate(fastest([&] {
        copy.clear();
        copy.append(text);
    }));
    return {{"quoted-printable, against one copy", ours, peer, "MB/s", {}, Row::Better::higher},
            {"quoted-printable", ours, {}, "MB/s", 500, Row::Better::higher}};
}

}

std::vector<Row> benchOutgoing() {
    std::vector<Row> rows{buildRow()};
    for (auto& row : quotedPrintableRows()) rows.push_back(std::move(row));
    return rows;
}

}
