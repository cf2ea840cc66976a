#include "bench/BodyBenchmark.h"

#include "support/MailServers.h"
#include "support/TemporaryDirectory.h"

#include <chrono>
#include <cstdlib>
#include <fmt/format.h>
#include <fstream>
#include <stdexcept>

namespace velmo::bench {

namespace {

using test::MailServers;

constexpr int messageCount = 10'000;

/// Seconds that a command takes; throws when it fails.
double run(const std::string& command) {
    const auto start = std::chrono::steady_clock::now();
    // NOLINTNEXTLINE(cert-env33-c,concurrency-mt-unsafe): our own words
    if (std::system((command + " > /dev/null").c_str()) != 0) throw std::runtime_error("failed: " + command);
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

struct Times {
    double heads = 0;  ///< the envelopes, for those who fetch them apart
    double bodies = 0; ///< the whole messages
    double index = 0;  ///< making them searchable, for those who do it apart
    double all() const { return heads + bodies + index; }
};

Times ours(const MailServers& servers, const std::filesystem::path& velmo) {
    const test::TemporaryDirectory home;
    const auto imap = servers.imap(ServerConfig::Security::tls);
    const auto smtp = servers.smtp(ServerConfig::Security::startTLS);
    const std::string call = fmt::format("VELMO_HOME={} {}", home.path().string(), velmo.string());
    run(fmt::format("echo {} | {} accounts add --email alice@example.test --username {} --imap {}:{}:tls --smtp "
                    "{}:{}:starttls --password-stdin",
                    servers.value("ALICE_PASSWORD"), call, servers.value("ALICE_USER"), imap.host, imap.port, smtp.host,
                    smtp.port));
    Times times;
    times.heads = run(call + " sync") + run(call + " older --mailbox inbox --all");
    times.bodies = run(call + " sync --bodies");
    return times;
}

Times peers(const MailServers& servers) {
    const test::TemporaryDirectory home;
    const auto imap = servers.imap(ServerConfig::Security::tls);
    const std::string mail = (home / "mail").string();
    std::filesystem::create_directory(home / "mail");
    std::ofstream(home / "mbsyncrc") << fmt::format(
        "IMAPAccount a\nHost {}\nPort {}\nUser {}\nPass {}\nSSLType IMAPS\nCertificateFile {}\n\n"
        "IMAPStore far\nAccount a\n\nMaildirStore near\nPath {}/\nInbox {}/INBOX\n\n"
        "Channel c\nFar :far:\nNear :near:\nPatterns INBOX\nCreate Near\nSyncState *\n",
        imap.host, imap.port, servers.value("ALICE_USER"), servers.value("ALICE_PASSWORD"),
        std::getenv("SSL_CERT_FILE"), mail, mail); // NOLINT(concurrency-mt-unsafe)
    std::ofstream(home / "notmuch") << fmt::format(
        "[database]\npath={}\n[user]\nname=Alice\nprimary_email=alice@example.test\n[new]\ntags=new\n", mail);
    Times times;
    times.bodies = run(fmt::format("mbsync -q -c {} c", (home / "mbsyncrc").string()));
    times.index = run(fmt::format("NOTMUCH_CONFIG={} notmuch new --quiet", (home / "notmuch").string()));
    return times;
}

}

std::vector<Row> benchBodies(const std::filesystem::path& velmo) {
    const MailServers servers;
    servers.fill(messageCount);
    const Times we = ours(servers, velmo);
    const Times they = peers(servers);
    return {Row{"every body here and searchable, 10,000", we.all(), they.all(), "s", 0.35, Row::Better::lower},
            Row{"heads alone, of these", we.heads, they.all(), "s", {}, Row::Better::lower},
            Row{"bodies alone, against the fetch of the peer", we.bodies, they.bodies, "s", 1.5, Row::Better::lower}};
}

}
