#pragma once

#include "protocols/ServerConfig.h"
#include "support/EnvironmentGuard.h"
#include "support/TemporaryDirectory.h"

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace velmo::test {

/// A private Dovecot (IMAP) and Postfix (SMTP) on loopback, as long as the object lives. Their certificate authority is
/// trusted by this process meanwhile.
class MailServers {
  public:
    enum class RawLog { no, yes };

    /// Why they can't be started here, as a sentence for the test's skip; absent when they can.
    static std::optional<std::string> obstacle();

    /// `without` names capabilities that are not announced: "CONDSTORE,MOVE", "AUTH=PLAIN", "all", or "" for none left
    /// out. With a raw log the lines of clients are kept.
    explicit MailServers(const std::string& without = {}, RawLog rawLog = RawLog::no);
    ~MailServers();
    MailServers(const MailServers&) = delete;
    MailServers& operator=(const MailServers&) = delete;

    /// Stops them and starts them again on other ports, with the same mail.
    void restart(RawLog rawLog);

    /// "ALICE_USER" and so on, as the start script tells them.
    std::string value(const std::string& name) const;
    ServerConfig imap(ServerConfig::Security security) const;
    ServerConfig smtp(ServerConfig::Security security) const;

    /// Adds `count` generated messages to Alice's inbox.
    void fill(int count, int seed = 1) const;
    /// The same for another mailbox of hers, by its path with "/"; it is made when it is not there.
    void fill(const std::string& mailbox, int count, int seed) const;

    /// Adds one message with these bytes to a mailbox of Alice's that is there.
    void deliver(const std::string& bytes, const std::string& mailbox = "INBOX");

    /// A message as it lies on the server's disk, with LF between lines and the letters of its flags (S: seen,
    /// R: answered, D: draft, T: deleted).
    struct Stored {
        std::string bytes, flags;
    };
    /// The messages of "alice" or "bob" in a mailbox, by its path with "/".
    std::vector<Stored> mail(const std::string& user, const std::string& mailbox = "INBOX") const;

    /// Puts something that can't be read in the place of the message of Alice's that holds these bytes.
    void damage(const std::string& bytes, const std::string& mailbox = "INBOX") const;

    /// Whether whatever the SMTP server has accepted has come to its mailboxes.
    bool hasDelivered() const;

    /// The certificate that they show, with its key beside it: "NAME.pem" and "NAME.key".
    std::filesystem::path certificate() const { return directory_ / "certs/good.pem"; }

    /// All that clients have sent after they signed in, one text a session, in the order of their beginning.
    std::vector<std::string> clientSessions() const;

  private:
    std::filesystem::path maildir(const std::string& user, const std::string& mailbox) const;
    void start(RawLog rawLog);
    void stop();

    TemporaryDirectory directory_;
    std::string without_;
    std::map<std::string, std::string> values_;
    std::optional<EnvironmentGuard> trust_;
    int delivered_ = 0;
};

}
