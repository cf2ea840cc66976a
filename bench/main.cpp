// Runs the benchmarks named (--list tells their names), or all, and prints what this system and its peers did: a table,
// or JSON with --json.

#include "bench/ApplicationBenchmark.h"
#include "bench/BodyBenchmark.h"
#include "bench/IMAPBenchmark.h"
#include "bench/ListBenchmark.h"
#include "bench/MIMEBenchmark.h"
#include "bench/OutgoingBenchmark.h"
#include "bench/SearchBenchmark.h"
#include "bench/SendBenchmark.h"
#include "bench/SyncBenchmark.h"
#include "bench/WriterBenchmark.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fmt/format.h>
#include <iostream>
#include <nlohmann/json.hpp>
#include <set>

namespace velmo::bench { namespace {

/// One of the measured matters. `programs` is where the built ones lie, this one among them.
struct Matter {
    std::string_view name;
    std::vector<Row> (*bench)(const std::filesystem::path& programs);
};

constexpr std::array matters{
    Matter{"mime", [](const auto&) { return benchMIME(); }},
    Matter{"outgoing", [](const auto&) { return benchOutgoing(); }},
    Matter{"imap", [](const auto&) { return benchIMAP(); }},
    Matter{"writer", [](const auto&) { return benchWriter(); }},
    Matter{"lists", [](const auto&) { return benchLists(); }},
    Matter{"search", benchSearch},
    Matter{"sync", benchSync},
    Matter{"bodies", benchBodies},
    Matter{"send", benchSending},
    Matter{"start", benchStart},
    Matter{"idle", benchIdle},
    Matter{"arrival", benchArrival},
};

/// What the bar is held against.
double judged(const Row& row) {
    return row.peer ? row.ours / *row.peer : row.ours;
}

bool holds(const Row& row) {
    if (!row.bar) return true;
    return row.better == Row::Better::higher ? judged(row) >= *row.bar : judged(row) <= *row.bar;
}

void printTable(const std::vector<Row>& rows) {
    std::cout << fmt::format("{:<54}{:>12}{:>12}  {:<5}{:>8}  {}\n", "", "ours", "peer", "unit", "ratio", "bar");
    for (const auto& row : rows) {
        const std::string peer = row.peer ? fmt::format("{:.1f}", *row.peer) : "";
        const std::string ratio = row.peer ? fmt::format("{:.2f}", judged(row)) : "";
        const std::string bar =
            row.bar ? fmt::format("{} {}: {}", row.better == Row::Better::higher ? "at least" : "at most", *row.bar,
                                  holds(row) ? "holds" : "FAILS")
                    : "";
        std::cout << fmt::format("{:<54}{:>12.1f}{:>12}  {:<5}{:>8}  {}\n", row.name, row.ours, peer, row.unit, ratio,
                                 bar);
    }
}

void printJSON(const std::vector<Row>& rows) {
    auto document = nlohmann::json::array();
    for (const auto& row : rows) {
        nlohmann::json entry{{"name", row.name}, {"ours", row.ours}, {"unit", row.unit}};
        if (row.peer) {
            entry["peer"] = *row.peer;
            entry["ratio"] = judged(row);
        }
        if (row.bar) {
            entry["bar"] = *row.bar;
            entry["holds"] = holds(row);
        }
        document.push_back(std::move(entry));
    }
    std::cout << document.dump(2) << '\n';
}

/// Runs the matters named, or all of them.
std::vector<Row> run(const std::filesystem::path& programs, std::set<std::string> wanted) {
    std::vector<Row> rows;
    const bool all = wanted.empty();
    for (const auto& matter : matters) {
        if (wanted.erase(std::string(matter.name)) == 0 && !all) continue;
        std::ranges::move(matter.bench(programs), std::back_inserter(rows));
    }
    if (!wanted.empty()) throw std::runtime_error("no such benchmark: " + *wanted.begin());
    return rows;
}

void listMatters() {
    for (const auto& matter : matters) std::cout << matter.name << '\n';
}

}}

int main(int count, char** words) {
    using namespace velmo::bench;
    try {
        if (count > 1 && std::strcmp(words[1], "--measure-memory") == 0)
            return measureMemory(std::vector<std::string>(words + 2, words + count));
        std::set<std::string> wanted(words + 1, words + count);
        if (wanted.contains("--list")) {
            listMatters();
            return 0;
        }
        const bool asJSON = wanted.erase("--json") > 0;
        const auto rows = run(std::filesystem::canonical("/proc/self/exe").parent_path(), std::move(wanted));
        asJSON ? printJSON(rows) : printTable(rows);
        return std::ranges::all_of(rows, holds) ? 0 : 1;
    } catch (const std::exception& error) {
        std::cerr << "velmo-bench: " << error.what() << '\n';
        return 2;
    }
}
