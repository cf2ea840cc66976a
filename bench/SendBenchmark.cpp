#include "bench/SendBenchmark.h"

#include "base/Clock.h"
#include "base/Runtime.h"
#include "base/Text.h"
#include "bench/Home.h"
#include "bench/Process.h"
#include "bench/Timing.h"
#include "compose/Outbox.h"
#include "protocols/DotStuffing.h"
#include "protocols/SMTPClient.h"
#include "support/Eventually.h"
#include "support/MailServers.h"
#include "support/TemporaryDirectory.h"

#include <algorithm>
#include <cstdlib>
#include <fmt/format.h>
#include <memory>
#include <optional>

namespace velmo::bench {

namespace {

using test::MailServers;

constexpr int rounds = 7;
constexpr std::size_t largeSize = 20'000'000;
constexpr int messageCount = 200;
constexpr std::size_t messageSize = 20'000;
constexpr int waitingItems = 1'000;
constexpr int attachedEvery = 10; ///< items
constexpr std::size_t attachedSize = 50'000;
constexpr int starts = 5;

/// Lines of some 70 bytes of which one in ten begins with a dot, and some hold one.
Bytes writtenText(std::size_t size) {
    Bytes text = "From: alice@example.test\r\nTo: bob@example.test\r\nSubject: minutes\r\n"
                 "Date: Mon, 23 Nov 2026 10:00:00 +0000\r\n\r\n";
    for (int line = 0; text.size() < size; ++line) {
        if (line % 10 == 0) text += '.';
        text += fmt::format("Line {:05} of the minutes. They go on and on, as minutes do\r\n", line);
    }
    return text;
}

template <class Copy>
double rateOf(const Bytes& text, Copy copy) {
    double best = 0;
    for (int round = 0; round < rounds; ++round) {
        const double seconds = secondsOf([&] {
            const Bytes result = copy(text);
            asm volatile("" : : "r"(result.data()) : "memory");
        });
        best = std::max(best, static_cast<double>(text.size()) / 1e6 / seconds);
    }
    return best;
}

double ours(const MailServers& servers, const Bytes& message) {
    Runtime runtime;
    SystemClock clock;
    const auto server = servers.smtp(ServerConfig::Security::tls);
    const auto credential = MailCredential::password(servers.value("ALICE_USER"), servers.value("ALICE_PASSWORD"));
    const SMTPEnvelope envelope(servers.value("ALICE_USER"), {servers.value("BOB_USER")});
    const auto shared = std::make_shared<const Bytes>(message);
    return secondsOf([&] {
        for (int i = 0; i < messageCount; ++i)
            runtime.run(
                [&] { return sendBySMTP(runtime.executors().io, clock, server, credential, envelope, shared); });
    });
}

double peers(const MailServers& servers, const Bytes& message) {
    const test::TemporaryDirectory home;
    const auto server = servers.smtp(ServerConfig::Security::tls);
    test::writeFile(home / "message", message);
    test::writeFile(home / "msmtprc",
                    fmt::format("account default\nhost {}\nport {}\nfrom {}\nauth plain\nuser {}\npassword {}\ntls on\n"
                                "tls_starttls off\ntls_trust_file {}\n",
                                server.host, server.port, servers.value("ALICE_USER"), servers.value("ALICE_USER"),
                                servers.value("ALICE_PASSWORD"),
                                std::getenv("SSL_CERT_FILE"))); // NOLINT(concurrency-mt-unsafe)
    std::filesystem::permissions(home / "msmtprc", std::filesystem::perms(0600));
    const std::string command = fmt::format("exec msmtp -C {} {} < {}", (home / "msmtprc").string(),
                                            servers.value("BOB_USER"), (home / "message").string());
    return secondsOf([&] {
        for (int i = 0; i < messageCount; ++i) runProgram({"sh", "-c", command});
    });
}

/// Mail for tomorrow, and one message that is due: when it is being sent, the outbox is read and armed.
void fillOutbox(const std::filesystem::path& folder, const UUID& accountID, Date now) {
    const OutboxFiles files(folder);
    OutboxItem item;
    item.accountID = accountID;
    item.isScheduled = true;
    item.to = {{"Bob", "bob@example.test"}};
    item.subject = "Minutes";
    item.body = text::replacedAll(writtenText(3'000), "\r\n", "\n");
    for (int i = 0; i <= waitingItems; ++i) {
        item.id = UUID::random();
        item.messageID = "<" + item.id.text() + "@example.test>";
        item.sendAt = i == waitingItems ? now : now + std::chrono::hours(24) + std::chrono::seconds(i);
        item.attachments.clear();
        if (i % attachedEvery == 0)
            item.attachments.push_back({UUID::random(), "a.bin", "x/y", Bytes(attachedSize, '\xA7')});
        files.write(item);
    }
}

double startOfOutbox(Home& home, const std::filesystem::path& folder) {
    double seconds = 0;
    home.use([&](Runtime& runtime, Application& application) {
        MemoryNetworkPath path;
        NetworkMonitor network(runtime.executors().main, application.clock(), path);
        Outbox::Parts parts(application.store(), application.settings(), network, folder);
        parts.transport = [](auto...) -> Async<void> {
            throw SMTPError::connection(MailConnectionError::cannotConnect("localhost"));
            co_return;
        };
        std::optional<Outbox> outbox;
        seconds = secondsOf([&] {
            outbox.emplace(std::move(parts));
            outbox->start();
            const auto isArmed = [&outbox] { return !outbox->sending->empty(); };
            if (!test::eventually(runtime, isArmed)) throw std::runtime_error("the outbox stands still");
        });
        runtime.run([&] { return outbox->stop(); });
    });
    return seconds;
}

Row outboxRow(const std::filesystem::path& programs) {
    Home home(programs);
    const auto accounts = home.addAccounts(1);
    double slowest = 0;
    for (int i = 0; i < starts; ++i) {
        const auto folder = home / ("Outbox" + std::to_string(i));
        fillOutbox(folder, accounts.front(), SystemClock().now());
        slowest = std::max(slowest, startOfOutbox(home, folder));
    }
    return {
        "outbox with 1,000 waiting: start until armed, slowest of 5", slowest * 1e3, {}, "ms", 200, Row::Better::lower};
}

}

std::vector<Row> benchSending(const std::filesystem::path& programs) {
    const Bytes large = writtenText(largeSize);
    const double stuffing = rateOf(large, [](const Bytes& text) { return dotStuffed(text); });
    const double copying = rateOf(large, [](const Bytes& text) { return Bytes(text); });

    const Bytes message = writtenText(messageSize);
    const MailServers servers;
    // Each side once at first, so that neither finds a server that has only just started.
    double we = ours(servers, message), they = peers(servers, message);
    we = ours(servers, message);
    they = peers(servers, message);
    return {
        Row{"dot-stuffing, against one copy", stuffing, copying, "MB/s", {}},
        Row{"dot-stuffing", stuffing, {}, "MB/s", 500},
        Row{"send 200 messages of 20 KB over TLS, against msmtp", we, they, "s", 1.0, Row::Better::lower},
        outboxRow(programs),
    };
}

}
