#include "bench/BodyBenchmark.h"

#include "bench/Home.h"
#include "bench/Process.h"
#include "bench/Timing.h"
#include "support/MailServers.h"
#include "support/TemporaryDirectory.h"

#include <cstdlib>
#include <fmt/format.h>
#include <fstream>

namespace velmo::bench {

namespace {

using test::MailServers;

constexpr int messageCount = 10'000;

double run(std::vector<std::string> words) {
    return secondsOf([&] { runProgram(std::move(words)); });
}

struct Times {
    double heads = 0;  ///< the envelopes, for those who fetch them apart
    double bodies = 0; ///< the whole messages
    double index = 0;  ///< making them searchable, for those who do it apart
    double all() const { return heads + bodies + index; }
};

Times ours(const MailServers& servers, const std::filesystem::path& programs) {
    Home home(programs);
    home.addAccount(servers, "ALICE");
    Times times;
    times.heads = run(home.call("velmo", {"sync"})) + run(home.call("velmo", {"older", "--mailbox", "inbox", "--all"}));
    times.bodies = run(home.call("velmo", {"sync", "--bodies"}));
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
    times.bodies = run({"mbsync", "-q", "-c", (home / "mbsyncrc").string(), "c"});
    const test::EnvironmentGuard configuration("NOTMUCH_CONFIG", (home / "notmuch").string());
    times.index = run({"notmuch", "new", "--quiet"});
    return times;
}

}

std::vector<Row> benchBodies(const std::filesystem::path& programs) {
    const MailServers servers;
    servers.fill(messageCount);
    const Times we = ours(servers, programs);
    const Times they = peers(servers);
    return {Row{"every body here and searchable, 10,000", we.all(), they.all(), "s", 0.35, Row::Better::lower},
            Row{"heads alone, of these", we.heads, they.all(), "s", {}, Row::Better::lower},
            Row{"bodies alone, against the fetch of the peer", we.bodies, they.bodies, "s", 1.5, Row::Better::lower}};
}

}
