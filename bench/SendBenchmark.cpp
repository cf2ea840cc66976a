#include "bench/SendBenchmark.h"

#include "base/Clock.h"
#include "base/Runtime.h"
#include "bench/Process.h"
#include "bench/Timing.h"
#include "protocols/DotStuffing.h"
#include "protocols/SMTPClient.h"
#include "support/MailServers.h"
#include "support/TemporaryDirectory.h"

#include <algorithm>
#include <cstdlib>
#include <fmt/format.h>
#include <memory>

namespace velmo::bench {

namespace {

using test::MailServers;

constexpr int rounds = 7;
constexpr std::size_t largeSize = 20'000'000;
constexpr int messageCount = 200;
constexpr std::size_t messageSize = 20'000;

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

}

std::vector<Row> benchSending() {
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
    };
}

}
