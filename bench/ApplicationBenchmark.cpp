#include "bench/ApplicationBenchmark.h"

#include "bench/GeneratedMail.h"
#include "bench/Home.h"
#include "bench/Process.h"
#include "bench/Timing.h"
#include "protocols/IMAPClient.h"
#include "store/Housekeeping.h"
#include "support/MailServers.h"

#include <algorithm>
#include <cstdlib>
#include <fmt/format.h>
#include <future>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <thread>

namespace velmo::bench {

namespace {

using namespace std::chrono_literals;
using test::MailServers;

Row limited(std::string name, double ours, std::string unit, std::optional<double> bar = {}) {
    return {std::move(name), ours, {}, std::move(unit), bar, Row::Better::lower};
}

template <class Condition>
void waitUntil(Condition condition, std::chrono::milliseconds look) {
    const auto limit = std::chrono::steady_clock::now() + 2min;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > limit) throw std::runtime_error("the application does not get there");
        std::this_thread::sleep_for(look);
    }
}

/// Before the application listens, `velmo` would carry out a command by itself.
void waitUntilListening(const Home& home) {
    waitUntil([&] { return std::filesystem::exists(home / "run/velmo-mail.sock"); }, 1ms);
}

// --- start -------------------------------------------------------------------------------------------------------

constexpr int storedMessages = 1'000'000;
constexpr int storedAccounts = 5;
constexpr std::size_t wordsOfStored = 30;
constexpr int starts = 5;

/// As an earlier run of the application has left it, with everything of its first start behind it.
void fill(Home& home) {
    auto accounts = home.addAccounts(storedAccounts);
    home.use([&](Runtime& runtime, Application& application) {
        MailGenerator generator(wordsOfStored, wordsOfStored);
        StoreFiller filler(application.mail(), std::move(accounts));
        for (int i = 0; i < storedMessages; ++i) filler.add(generator.next());
        filler.commit();
        indexTexts(runtime, application.store().environment().writer);
        keepHouse(application.mail(), application.settings());
    });
}

double firstList(const Home& home) {
    return millisecondsOf([&] {
        waitUntilListening(home);
        if (outputOf(home.call("velmo", {"list"})).empty()) throw std::runtime_error("the list is empty");
    });
}

// --- idle and arrival --------------------------------------------------------------------------------------------

constexpr int messagesWhenIdle = 50;

/// Until every account waits for its server.
void waitForFirstPass(const Home& home) {
    waitUntilListening(home);
    waitUntil(
        [&] {
            const auto status = nlohmann::json::parse(outputOf(home.call("velmo", {"--json", "status"})));
            return status["isRunning"] && std::ranges::all_of(status["accounts"], [](const auto& account) {
                       return account["status"] == "idle" && account["bodiesMissing"] == 0 &&
                              !account["lastChecked"].is_null();
                   });
        },
        100ms);
    std::this_thread::sleep_for(3s);
}

/// Another client of the same person.
class OtherClient {
  public:
    explicit OtherClient(const MailServers& servers)
        : client_(runtime_.executors().io, clock_, servers.imap(ServerConfig::Security::tls),
                  MailCredential::password(servers.value("ALICE_USER"), servers.value("ALICE_PASSWORD"))) {
        runtime_.run([this]() -> Async<void> { co_await client_.connect(); });
    }

    void append(Bytes message) {
        runtime_.run([&]() -> Async<void> { co_await client_.append("INBOX", {}, std::move(message)); });
    }

    /// Gives when the server told of new mail.
    std::chrono::steady_clock::time_point listen() {
        const bool hasHeard =
            runtime_.run([this]() -> Async<bool> { return client_.idle("INBOX", Duration(120'000)); });
        if (!hasHeard) throw std::runtime_error("the server tells nothing of new mail");
        return std::chrono::steady_clock::now();
    }

  private:
    Runtime runtime_;
    SystemClock clock_;
    IMAPClient client_;
};

constexpr int arrivals = 10;
constexpr auto untilIdle = 1s; ///< for a client to begin to listen

struct Arrival {
    double afterAppend = 0;
    double afterWord = 0; ///< of the server to a client that does nothing but listen
};

Arrival arrival(OtherClient& sender, OtherClient& listener, Process& watch, int number) {
    auto heard = std::async(std::launch::async, [&listener] { return listener.listen(); });
    std::this_thread::sleep_for(untilIdle);
    const auto start = std::chrono::steady_clock::now();
    sender.append(
        fmt::format("From: Someone <someone@example.test>\r\nSubject: Arrival {}\r\n\r\nHere it is.\r\n", number));
    const auto line = watch.readLine(30s);
    const auto end = std::chrono::steady_clock::now();
    if (!line || !line->contains(fmt::format("Arrival {}", number))) throw std::runtime_error("nothing arrived");
    const std::chrono::duration<double> afterAppend = end - start, afterWord = end - heard.get();
    return {afterAppend.count(), afterWord.count()};
}

}

std::vector<Row> benchStart(const std::filesystem::path& programs) {
    Home home(programs);
    fill(home);
    std::vector<double> times;
    MemoryUse most;
    for (int i = 0; i < starts; ++i) {
        Process application(home.call("velmo-mail"));
        times.push_back(firstList(home));
        const MemoryUse memory = memoryOf(application.id());
        most = {std::max(most.resident, memory.resident), std::max(most.peak, memory.peak),
                std::max(most.proportional, memory.proportional)};
    }
    return {limited("start to first list, 1,000,000 messages", median(times), "ms", 300),
            limited("the slowest of five", percentile(times, 99), "ms"),
            limited("resident memory then", most.resident, "MB", 150), limited("its peak", most.peak, "MB", 150),
            limited("its own and its share (PSS)", most.proportional, "MB")};
}

std::vector<Row> benchIdle(const std::filesystem::path& programs) {
    const MailServers servers;
    servers.fill(messagesWhenIdle);
    Home home(programs);
    for (const char* user : {"ALICE", "BOB", "BOB"}) home.addAccount(servers, user);
    const Process application(home.call("velmo-mail"));
    waitForFirstPass(home);
    const char* wanted = std::getenv("VELMO_IDLE_SECONDS"); // NOLINT(concurrency-mt-unsafe)
    const std::chrono::seconds span(wanted != nullptr ? std::stoi(wanted) : 60);
    const Activity before = activityOf(application.id());
    std::this_thread::sleep_for(span);
    const Activity after = activityOf(application.id());
    const double minutes = std::chrono::duration<double, std::ratio<60>>(span).count();
    return {limited("three idle accounts: processor time a minute",
                    (after.processorMilliseconds - before.processorMilliseconds) / minutes, "ms"),
            limited("three idle accounts: wake-ups a minute",
                    static_cast<double>(after.wakeUps - before.wakeUps) / minutes, "")};
}

std::vector<Row> benchArrival(const std::filesystem::path& programs) {
    const MailServers servers;
    servers.fill(messagesWhenIdle);
    Home home(programs);
    home.addAccount(servers, "ALICE");
    const Process application(home.call("velmo-mail"));
    waitForFirstPass(home);
    Process watch(home.call("velmo", {"--json", "watch"}), Process::Output::here);
    OtherClient sender(servers), listener(servers);
    std::vector<double> afterAppend, afterWord;
    for (int i = 1; i <= arrivals; ++i) {
        const Arrival one = arrival(sender, listener, watch, i);
        afterAppend.push_back(one.afterAppend);
        afterWord.push_back(one.afterWord);
    }
    return {limited("new mail shown, after the server's word, median", median(afterWord), "s", 2.5),
            limited("new mail shown, after the server's word, worst", percentile(afterWord, 99), "s", 2.5),
            limited("new mail shown, after its append, median", median(afterAppend), "s"),
            limited("new mail shown, after its append, worst", percentile(afterAppend, 99), "s")};
}

}
