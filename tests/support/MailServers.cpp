#include "support/MailServers.h"

#include "base/Text.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <fmt/format.h>
#include <stdexcept>
#include <unistd.h>

namespace velmo::test {

namespace {

/// Runs a shell command; throws with its output when it fails.
void run(const std::string& command) {
    std::FILE* pipe = popen((command + " 2>&1").c_str(), "r"); // NOLINT(cert-env33-c): a test's own words
    if (pipe == nullptr) throw std::runtime_error("no shell for: " + command);
    std::string output;
    std::array<char, 4096> block{};
    while (const auto count = std::fread(block.data(), 1, block.size(), pipe)) output.append(block.data(), count);
    if (pclose(pipe) != 0) throw std::runtime_error(command + ": " + output);
}

std::string script(std::string_view name) {
    return testFile("servers/" + std::string(name)).string();
}

}

std::optional<std::string> MailServers::obstacle() {
    if (geteuid() != 0) return "real mail servers need root to start; run: sudo ./dev test";
    for (const char* program : {"/usr/sbin/dovecot", "/usr/sbin/postconf"})
        if (access(program, X_OK) != 0) return std::string(program) + " is not installed";
    return std::nullopt;
}

MailServers::MailServers(const std::string& without, RawLog rawLog) : without_(without) {
    start(rawLog);
}

MailServers::~MailServers() {
    try {
        stop();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
    }
}

void MailServers::start(RawLog rawLog) {
    std::string command = script("start") + " " + directory_.path().string();
    if (!without_.empty()) command += " --without " + without_;
    if (rawLog == RawLog::yes) command += " --rawlog";
    // Another program may take a port between its choice and its use.
    for (int attempt = 1;; ++attempt) {
        try {
            run(command);
            break;
        } catch (const std::runtime_error& error) {
            if (attempt == 4 || !std::string_view(error.what()).contains("Address already in use")) throw;
            try {
                stop();
            } catch (const std::runtime_error&) {
                // What did not come up can't be stopped.
            }
        }
    }
    values_.clear();
    const std::string environment = contentsOf(directory_ / "env");
    for (const auto line : text::split(environment, '\n')) {
        const auto equals = line.find('=');
        if (equals != std::string_view::npos)
            values_[std::string(line.substr(0, equals))] = std::string(line.substr(equals + 1));
    }
    trust_.emplace("SSL_CERT_FILE", value("CA_FILE"));
}

void MailServers::stop() {
    run(script("stop") + " " + directory_.path().string());
}

void MailServers::restart(RawLog rawLog) {
    stop();
    start(rawLog);
}

std::string MailServers::value(const std::string& name) const {
    return values_.at(name);
}

ServerConfig MailServers::imap(ServerConfig::Security security) const {
    const char* port = security == ServerConfig::Security::tls ? "IMAPS_PORT" : "IMAP_PORT";
    return {value("MAIL_HOST"), std::stoi(value(port)), security};
}

ServerConfig MailServers::smtp(ServerConfig::Security security) const {
    const char* port = security == ServerConfig::Security::tls ? "SMTPS_PORT" : "SMTP_PORT";
    return {value("MAIL_HOST"), std::stoi(value(port)), security};
}

void MailServers::fill(int count, int seed) const {
    run(fmt::format("{} {} {} {}", script("fill"), value("ALICE_MAILDIR"), count, seed));
}

void MailServers::fill(const std::string& mailbox, int count, int seed) const {
    const std::string maildir = value("ALICE_MAILDIR") + "/." + text::replacedAll(mailbox, "/", ".");
    // The servers find a mailbox by its directory; the generator makes what lies below.
    run(fmt::format("install -d -o mail -g mail -m 700 '{0}' && {1} '{0}' {2} {3}", maildir, script("fill"), count,
                    seed));
}

std::filesystem::path MailServers::maildir(const std::string& user, const std::string& mailbox) const {
    const auto home = directory_ / ("home/" + user + "/Maildir");
    return mailbox == "INBOX" ? home : home / ("." + text::replacedAll(mailbox, "/", "."));
}

void MailServers::deliver(const std::string& bytes, const std::string& mailbox) {
    const std::string name = fmt::format("{}.M{}.test", 1'800'000'000 + delivered_, delivered_);
    const auto file = maildir("alice", mailbox) / "new" / name;
    ++delivered_;
    writeFile(file, bytes);
    run(fmt::format("chown mail:mail {}", file.string()));
}

std::vector<MailServers::Stored> MailServers::mail(const std::string& user, const std::string& mailbox) const {
    std::vector<Stored> all;
    for (const char* part : {"new", "cur"}) {
        const auto directory = maildir(user, mailbox) / part;
        if (!std::filesystem::exists(directory)) continue;
        for (const auto& entry : std::filesystem::directory_iterator(directory)) {
            const std::string name = entry.path().filename();
            const auto flags = name.find(":2,");
            all.push_back({contentsOf(entry.path()), flags == std::string::npos ? "" : name.substr(flags + 3)});
        }
    }
    return all;
}

void MailServers::damage(const std::string& bytes, const std::string& mailbox) const {
    std::filesystem::path damaged;
    for (const char* part : {"new", "cur"}) {
        for (const auto& entry : std::filesystem::directory_iterator(maildir("alice", mailbox) / part))
            if (contentsOf(entry.path()).contains(bytes)) damaged = entry.path();
    }
    std::filesystem::remove(damaged);
    std::filesystem::create_directory(damaged);
}

bool MailServers::hasDelivered() const {
    for (const char* queue : {"incoming", "active", "deferred"}) {
        std::error_code gone; // files come and go meanwhile
        for (std::filesystem::recursive_directory_iterator entry(directory_ / "spool" / queue, gone), end;
             !gone && entry != end; entry.increment(gone))
            if (!entry->is_directory(gone)) return false;
        if (gone) return false;
    }
    return true;
}

std::vector<std::string> MailServers::clientSessions() const {
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator(directory_ / "home/alice/rawlog"))
        if (entry.path().extension() == ".in") files.push_back(entry.path());
    std::ranges::sort(files, {}, [](const auto& file) { return std::filesystem::last_write_time(file); });
    std::vector<std::string> sessions;
    for (const auto& file : files) sessions.push_back(contentsOf(file));
    return sessions;
}

}
