#include "bench/SyncBenchmark.h"

#include "base/Runtime.h"
#include "base/Text.h"
#include "bench/BareClient.h"
#include "bench/Process.h"
#include "bench/Timing.h"
#include "records/ModelContainer.h"
#include "store/AccountPass.h"
#include "support/MailServers.h"

#include <algorithm>
#include <fmt/format.h>
#include <iostream>
#include <stdexcept>
#include <unistd.h>

namespace velmo::bench {

namespace {

using test::MailServers;

constexpr int mailboxCount = 20;
constexpr int messagesEach = 200;
constexpr int largeMailbox = 10'000;
constexpr int rounds = 7;

struct Login {
    ServerConfig server;
    std::string user;
    std::string password;
};

Login loginOf(const MailServers& servers) {
    return {servers.imap(ServerConfig::Security::tls), servers.value("ALICE_USER"), servers.value("ALICE_PASSWORD")};
}

/// One account's mirror in a store of its own.
class Mirror {
  public:
    Mirror(Runtime& runtime, const Login& login)
        : runtime_(runtime),
          login_(login),
          clock_(std::make_shared<SystemClock>()),
          container_(ModelContainer::open(directory_ / "Mail.sqlite", runtime.executors().main)),
          writer_(container_, MessageFiles(directory_ / "Messages"), clock_, runtime.executors().background) {}

    /// A pass with a session of its own, as `velmo sync` does it.
    void pass() {
        runtime_.run([this]() -> Async<void> {
            const auto engine = makeEngine();
            co_await passOver(*engine, writer_, account_, LabelNewMail::yes);
            co_await engine->disconnect();
        });
    }

    /// Fetches what a first pass left out, to the oldest message.
    void backfill() {
        runtime_.run([this]() -> Async<void> {
            const auto engine = makeEngine();
            const SyncState held = co_await writer_.syncState(account_, "INBOX");
            auto left = co_await engine->olderUIDs("INBOX", static_cast<std::uint32_t>(held.oldestSyncedUID));
            while (!left.empty()) {
                const auto first = left.end() - std::min<std::ptrdiff_t>(100, std::ssize(left));
                std::vector<std::uint32_t> slice(first, left.end());
                left.erase(first, left.end());
                auto older = co_await engine->fetchMessages("INBOX", held.uidValidity, std::move(slice));
                co_await writer_.insertOlder(std::move(older), account_, "INBOX", held.uidValidity, LabelNewMail::yes);
            }
            co_await engine->disconnect();
        });
    }

    std::size_t held(const std::string& path) {
        return runtime_.run([&]() -> Async<std::size_t> {
            const SyncState state = co_await writer_.syncState(account_, path);
            co_return state.knownUIDs.size();
        });
    }

  private:
    std::unique_ptr<SyncEngine> makeEngine() {
        auto credential = [login = login_]() -> Async<MailCredential> {
            co_return MailCredential::password(login.user, login.password);
        };
        return std::make_unique<SyncEngine>(account_, login_.server, std::move(credential), *clock_,
                                            runtime_.executors().io);
    }

    Runtime& runtime_;
    Login login_;
    test::TemporaryDirectory directory_;
    UUID account_ = UUID::random();
    std::shared_ptr<Clock> clock_;
    std::shared_ptr<ModelContainer> container_;
    SyncWriter writer_;
};

/// The command lines of the newest session in the raw log, without their time stamps.
std::vector<std::string> recordedCommands(const MailServers& servers) {
    std::vector<std::string> commands;
    const std::string session = servers.clientSessions().back();
    for (auto line : text::split(session, '\n')) {
        line = text::trimmed(line.substr(std::min(line.size(), line.find(' ') + 1)));
        // The answer to the sign-in stands there without a tag's blank.
        if (line.find(' ') != std::string_view::npos) commands.emplace_back(line);
    }
    return commands;
}

/// Ours and the bare client in turns; the median of each.
template <class Ours>
Row passRow(std::string name, const Login& login, const std::vector<std::string>& commands, Ours ours) {
    std::vector<double> oursTimes, bareTimes;
    for (int round = 0; round < rounds; ++round) {
        oursTimes.push_back(ours());
        bareTimes.push_back(millisecondsOf([&] { playBare(login.server, login.user, login.password, commands); }));
    }
    return Row{std::move(name), median(oursTimes), median(bareTimes), "ms", 1.5, Row::Better::lower};
}

std::vector<Row> benchPasses(Runtime& runtime) {
    MailServers servers({}, MailServers::RawLog::yes);
    servers.fill(messagesEach, 1);
    for (int i = 1; i < mailboxCount; ++i) servers.fill(fmt::format("Folder {:02}", i), messagesEach, i + 1);

    Mirror recorded(runtime, loginOf(servers));
    recorded.pass();
    const auto firstCommands = recordedCommands(servers);
    recorded.pass();
    const auto secondCommands = recordedCommands(servers);
    if (recorded.held("INBOX") != messagesEach) throw std::runtime_error("the first pass did not mirror the inbox");

    servers.restart(MailServers::RawLog::no);
    const Login login = loginOf(servers);
    const auto first = [&] {
        Mirror fresh(runtime, login);
        return millisecondsOf([&] { fresh.pass(); });
    };
    Mirror filled(runtime, login);
    filled.pass();
    const auto second = [&] { return millisecondsOf([&] { filled.pass(); }); };
    return {passRow("first pass, 20 mailboxes of 200", login, firstCommands, first),
            passRow("second pass, nothing new", login, secondCommands, second)};
}

Row benchMemory(const std::string& program) {
    const MailServers servers;
    servers.fill(largeMailbox, 1);
    const Login login = loginOf(servers);
    const double megabytes = std::stod(outputOf({program, "--measure-memory", login.server.host,
                                                 std::to_string(login.server.port), login.user, login.password}));
    return Row{"peak memory, mailbox of 10,000", megabytes, {}, "MB", 100, Row::Better::lower};
}

}

std::vector<Row> benchSync(const std::filesystem::path& programs) {
    Runtime runtime;
    auto rows = benchPasses(runtime);
    rows.push_back(benchMemory(programs / "velmo-bench"));
    return rows;
}

int measureMemory(const std::vector<std::string>& words) {
    Runtime runtime;
    const Login login{ServerConfig(words.at(0), std::stoi(words.at(1)), ServerConfig::Security::tls), words.at(2),
                      words.at(3)};
    Mirror mirror(runtime, login);
    mirror.pass();
    mirror.backfill();
    mirror.pass();
    if (mirror.held("INBOX") != largeMailbox) return 1;
    // Not what getrusage tells, which counts the process before it became this program.
    std::cout << memoryOf(::getpid()).peak << std::endl;
    return 0;
}

}
