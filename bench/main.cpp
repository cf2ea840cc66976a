// Runs the benchmarks named (mime, imap, writer, lists, sync, bodies), or all, and prints what this system and its
// peers did: a table, or JSON with --json.

#include "bench/BodyBenchmark.h"
#include "bench/IMAPBenchmark.h"
#include "bench/ListBenchmark.h"
#include "bench/MIMEBenchmark.h"
#include "bench/SyncBenchmark.h"
#include "bench/WriterBenchmark.h"
#include "support/TemporaryDirectory.h"

#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fmt/format.h>
#include <iostream>
#include <nlohmann/json.hpp>
#include <set>

namespace velmo::bench { namespace {

double ratio(const Row& row) {
    return row.peer > 0 ? row.ours / row.peer : 0;
}

bool holds(const Row& row) {
    if (!row.bar) return true;
    return row.better == Row::Better::higher ? ratio(row) >= *row.bar : ratio(row) <= *row.bar;
}

void printTable(const std::vector<Row>& rows) {
    std::cout << fmt::format("{:<44}{:>12}{:>12}  {:<5}{:>8}  {}\n", "", "ours", "peer", "unit", "ratio", "bar");
    for (const auto& row : rows) {
        const std::string bar =
            row.bar ? fmt::format("{} {}: {}", row.better == Row::Better::higher ? "at least" : "at most", *row.bar,
                                  holds(row) ? "holds" : "FAILS")
                    : "";
        std::cout << fmt::format("{:<44}{:>12.1f}{:>12.1f}  {:<5}{:>8.2f}  {}\n", row.name, row.ours, row.peer,
                                 row.unit, ratio(row), bar);
    }
}

void printJSON(const std::vector<Row>& rows) {
    auto document = nlohmann::json::array();
    for (const auto& row : rows) {
        nlohmann::json entry{
            {"name", row.name}, {"ours", row.ours}, {"peer", row.peer}, {"unit", row.unit}, {"ratio", ratio(row)}};
        if (row.bar) {
            entry["bar"] = *row.bar;
            entry["holds"] = holds(row);
        }
        document.push_back(std::move(entry));
    }
    std::cout << document.dump(2) << '\n';
}

/// The generated corpus of the message benchmark.
constexpr int corpusSize = 3000;

/// Runs the matters named, or all of them.
std::vector<Row> run(const std::string& program, const std::set<std::string>& matters) {
    std::vector<Row> rows;
    const auto wanted = [&matters](const char* matter) { return matters.empty() || matters.contains(matter); };
    const auto add = [&rows](std::vector<Row> more) {
        rows.insert(rows.end(), std::make_move_iterator(more.begin()), std::make_move_iterator(more.end()));
    };
    if (wanted("mime")) {
        const test::TemporaryDirectory corpus;
        const std::string command =
            fmt::format("{} {} {}", test::testFile("servers/fill").string(), corpus.path().string(), corpusSize);
        if (std::system(command.c_str()) != 0)
            throw std::runtime_error("no corpus"); // NOLINT(cert-env33-c,concurrency-mt-unsafe)
        add(benchMIME(corpus.path()));
    }
    if (wanted("imap")) add(benchIMAP());
    if (wanted("writer")) add(benchWriter());
    if (wanted("lists")) add(benchLists());
    if (wanted("sync")) add(benchSync(program));
    if (wanted("bodies")) add(benchBodies(std::filesystem::path(program).replace_filename("velmo")));
    return rows;
}

}}

int main(int count, char** words) {
    using namespace velmo::bench;
    try {
        if (count > 1 && std::strcmp(words[1], "--measure-memory") == 0)
            return measureMemory(std::vector<std::string>(words + 2, words + count));
        std::set<std::string> matters(words + 1, words + count);
        const bool asJSON = matters.erase("--json") > 0;
        const auto rows = run(std::filesystem::canonical("/proc/self/exe").string(), matters);
        asJSON ? printJSON(rows) : printTable(rows);
        return std::ranges::all_of(rows, holds) ? 0 : 1;
    } catch (const std::exception& error) {
        std::cerr << "velmo-bench: " << error.what() << '\n';
        return 2;
    }
}
