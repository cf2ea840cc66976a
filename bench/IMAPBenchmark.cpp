#include "bench/IMAPBenchmark.h"

#include "bench/Timing.h"
#include "protocols/IMAPFetchResult.h"
#include "protocols/IMAPResponse.h"

#include <algorithm>
#include <cstring>
#include <fmt/format.h>

namespace velmo::bench {

namespace {

constexpr int rounds = 5;

std::string headerResponse(int number) {
    const std::string references =
        fmt::format("References: <thread-{0}-1@mail.example> <thread-{0}-2@mail.example>\r\n\r\n", number / 7);
    return fmt::format(
        "* {0} FETCH (UID {1} FLAGS (\\Seen $Forwarded) INTERNALDATE \"{2:02}-Mar-2025 10:{3:02}:07 +0100\" "
        "RFC822.SIZE {4} ENVELOPE (\"Mon, {2} Mar 2025 10:{3:02}:01 +0100\" "
        "\"=?utf-8?Q?Gr=C3=BC=C3=9Fe_zum_Projekt_{0}?= and the minutes of our meeting\" "
        "((\"Ann Example\" NIL \"ann.{5}\" \"example.test\")) ((\"Ann Example\" NIL \"ann.{5}\" \"example.test\")) "
        "((\"Ann Example\" NIL \"ann.{5}\" \"example.test\")) ((\"Bob Sample\" NIL \"bob\" \"sample.test\")"
        "(NIL NIL \"team\" \"sample.test\")) NIL NIL \"<parent-{0}@mail.example>\" \"<message-{0}@mail.example>\") "
        "BODYSTRUCTURE (((\"TEXT\" \"PLAIN\" (\"CHARSET\" \"utf-8\") NIL NIL \"QUOTED-PRINTABLE\" {4} 40 NIL NIL NIL)"
        "(\"TEXT\" \"HTML\" (\"CHARSET\" \"utf-8\") NIL NIL \"QUOTED-PRINTABLE\" {4} 90 NIL NIL NIL) \"ALTERNATIVE\" "
        "(\"BOUNDARY\" \"b-{0}\") NIL NIL)(\"APPLICATION\" \"PDF\" (\"NAME\" \"minutes-{0}.pdf\") NIL NIL \"BASE64\" "
        "88172 NIL (\"ATTACHMENT\" (\"FILENAME\" \"minutes-{0}.pdf\")) NIL) \"MIXED\" (\"BOUNDARY\" \"a-{0}\") NIL "
        "NIL) "
        "BODY[HEADER.FIELDS (REFERENCES LIST-UNSUBSCRIBE LIST-ID PRECEDENCE)] {{{6}}}\r\n{7})",
        number, 90'000 + number, 1 + number % 28, number % 60, 4000 + number, number % 40, references.size(),
        references);
}

std::size_t totalSize(const std::vector<Bytes>& responses) {
    std::size_t size = 0;
    for (const Bytes& response : responses) size += response.size();
    return size;
}

/// Megabytes a second.
double rateOf(std::size_t bytes, double seconds) {
    return static_cast<double>(bytes) / 1e6 / seconds;
}

double readingRate(const std::vector<Bytes>& responses) {
    std::size_t read = 0;
    double best = 0;
    for (int i = 0; i < rounds; ++i) {
        // The client hands over what it has received, so the copies are not part of the work.
        std::vector<Bytes> received = responses;
        const double seconds = secondsOf([&] {
            for (Bytes& bytes : received) {
                const IMAPResponse response = parseResponse(std::move(bytes));
                if (IMAPFetchResult::read(response.values())) ++read;
            }
        });
        best = std::max(best, rateOf(totalSize(responses), seconds));
    }
    return read == responses.size() * rounds ? best : 0;
}

double copyingRate(const std::vector<Bytes>& responses) {
    double best = 0;
    for (int i = 0; i < rounds; ++i) {
        const double seconds = secondsOf([&] {
            for (const Bytes& response : responses) {
                const Bytes copy = response;
                asm volatile("" : : "r"(copy.data()) : "memory");
            }
        });
        best = std::max(best, rateOf(totalSize(responses), seconds));
    }
    return best;
}

}

std::vector<Row> benchIMAP() {
    std::vector<Bytes> headers;
    for (int i = 1; i <= 5000; ++i) headers.push_back(headerResponse(i));
    std::vector<Bytes> literals;
    constexpr std::size_t literalSize = 1'000'000;
    for (int i = 1; i <= 50; ++i) {
        literals.push_back(fmt::format("* {} FETCH (UID {} BODY[] {{{}}}\r\n", i, i, literalSize) +
                           std::string(literalSize, 'x') + ")");
    }
    const double headerRate = readingRate(headers);
    const double literalRate = readingRate(literals);
    return {
        Row{"IMAP: header items of 5,000 messages, against one copy", headerRate, copyingRate(headers), "MB/s", {}},
        Row{"IMAP: messages of 1 MB, against one copy", literalRate, copyingRate(literals), "MB/s", {}},
        Row{"IMAP: messages of 1 MB", literalRate, {}, "MB/s", 1000},
    };
}

}
