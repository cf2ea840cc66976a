// The built programs with an account on real servers.

#include "base/Runtime.h"
#include "protocols/IMAPClient.h"
#include "support/EnvironmentGuard.h"
#include "support/ServerTest.h"
#include "terminal/CommandSocket.h"
#include "terminal/Program.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <optional>

namespace velmo { namespace {

using nlohmann::json;
using test::eventually;
using test::Outcome;
using test::Program;
using test::velmo;
using testing::HasSubstr;

/// Alice's account with three messages in its inbox.
class ServerCommands : public test::WithServers<> {
  protected:
    void prepare() override {
        servers_.emplace();
        servers_->fill(3);
        addAccount("ALICE");
        ASSERT_EQ(velmo({"sync"}).code, 0);
    }

    void addAccount(const std::string& person) {
        test::writeFile(home_ / "password", servers_->value(person + "_PASSWORD") + "\n");
        const Outcome added =
            velmo({"accounts", "add", "--email", servers_->value(person + "_USER"), "--password-stdin", "--imap",
                   "localhost:" + servers_->value("IMAPS_PORT") + ":tls", "--smtp",
                   "localhost:" + servers_->value("SMTP_PORT") + ":starttls"},
                  home_ / "password");
        ASSERT_EQ(added.code, 0) << added.err;
    }

    static json rows(const std::string& mailbox) {
        return json::parse(velmo({"--json", "list", "--mailbox", mailbox}).out);
    }

    /// The number of each message in it, newest first.
    static std::vector<std::string> numbers(const std::string& mailbox) {
        std::vector<std::string> all;
        for (const auto& row : rows(mailbox)) all.push_back(std::to_string(row["id"].get<std::int64_t>()));
        return all;
    }

    /// How many another client finds in the mailbox.
    std::int64_t countOnServer(const std::string& mailbox) const {
        Runtime runtime;
        SystemClock clock;
        IMAPClient other(makeStrand(runtime.executors().io), clock, servers_->imap(ServerConfig::Security::tls),
                         MailCredential::password(servers_->value("ALICE_USER"), servers_->value("ALICE_PASSWORD")));
        return runtime.run([&]() -> Async<std::int64_t> {
            co_await other.connect();
            const auto status = co_await other.status(mailbox);
            co_await other.close();
            co_return status.messages;
        });
    }

    bool isListening() const { return connectTo(home_ / "run/velmo-mail.sock").has_value(); }

    test::TemporaryDirectory home_;
    std::optional<test::MailServers> servers_;

  private:
    test::EnvironmentGuard homeGuard_{"VELMO_HOME", home_.path().string()};
};

TEST_F(ServerCommands, AnActionOfItsOwnProcessHasReachedTheServerWhenItEnds) {
    const auto inbox = numbers("inbox");
    ASSERT_EQ(inbox.size(), 3U);
    const Outcome done = velmo({"archive", inbox[0]});
    const auto renumbered = numbers("archive");
    ASSERT_EQ(renumbered.size(), 1U);
    EXPECT_EQ(done, (Outcome{0, "Archived\nMessage " + inbox[0] + " has the number " + renumbered[0] + " now.\n", ""}));
    EXPECT_EQ(countOnServer("Archive"), 1);
    EXPECT_EQ(countOnServer("INBOX"), 2);

    // Nobody is told that something was done to a message that stays where it is.
    const auto archived = numbers("archive");
    ASSERT_EQ(archived.size(), 1U);
    for (const auto& words : std::vector<std::vector<std::string>>{
             {"archive", archived[0]}, {"inbox", inbox[1]}, {"move", archived[0], "--to", "Archive"}}) {
        const Outcome nothing = velmo(words);
        EXPECT_EQ(nothing.code, 1) << testing::PrintToString(words);
        EXPECT_THAT(nothing.err, HasSubstr("there already"));
    }
    const json some = json::parse(velmo({"--json", "archive", archived[0], inbox[1]}).out);
    EXPECT_EQ(some["messages"], json({std::stoll(inbox[1])}));
    EXPECT_EQ(countOnServer("Archive"), 2);
}

TEST_F(ServerCommands, TakesBackAnActionOfTheRunningApplicationWhateverCameAfterIt) {
    const auto inbox = numbers("inbox");
    ASSERT_EQ(inbox.size(), 3U);
    Program application("velmo-mail", {});
    ASSERT_TRUE(eventually([&] { return isListening(); }));
    EXPECT_THAT(velmo({"undo"}).err, HasSubstr("nothing was done since"));
    EXPECT_EQ(json::parse(velmo({"--json", "archive", inbox[0]}).out)["state"], "pending");
    const Outcome twice = velmo({"archive", inbox[0]});
    EXPECT_EQ(velmo({"flag", inbox[1]}), (Outcome{0, "Done\n", ""}));
    EXPECT_EQ(velmo({"undo"}), (Outcome{0, "Undone: Archived\n", ""}));
    EXPECT_EQ(twice.code, 1);
    EXPECT_THAT(twice.err, HasSubstr("leaving its mailbox already"));
    EXPECT_THAT(velmo({"undo"}).err, HasSubstr("“Archived” is taken back already"));
    EXPECT_EQ(velmo({"unflag", inbox[1]}).code, 0);
    EXPECT_THAT(velmo({"undo"}).err, HasSubstr("the opposite command takes them back"));
    EXPECT_EQ(numbers("inbox"), inbox);

    // What nobody took back goes out at the latest when the application quits.
    EXPECT_EQ(velmo({"archive", inbox[2]}).code, 0);
    application.signal(SIGTERM);
    EXPECT_EQ(application.outcome().code, 0);
    EXPECT_EQ(countOnServer("Archive"), 1);
    EXPECT_EQ(countOnServer("INBOX"), 2);
}

TEST_F(ServerCommands, AnAccountThatFailsOrLacksAMailboxDoesNotKeepOthersFromTheirTurn) {
    servers_->fill("Letters", 2, 5);
    addAccount("BOB");
    ASSERT_EQ(velmo({"sync"}).code, 0);
    const Outcome letters = velmo({"--json", "older", "--mailbox", "Letters"});
    EXPECT_EQ(letters.code, 0) << letters.err;
    EXPECT_EQ(json::parse(letters.out).size(), 1U);
    EXPECT_THAT(velmo({"older", "--mailbox", "None"}).err, HasSubstr("There is no mailbox None."));

    // Their servers are elsewhere now.
    servers_->restart(test::MailServers::RawLog::no);
    const Outcome failed = velmo({"--json", "sync", "--bodies"});
    EXPECT_EQ(failed.code, 1);
    const json accounts = json::parse(failed.out);
    ASSERT_EQ(accounts.size(), 2U);
    for (const auto& entry : accounts) EXPECT_TRUE(entry.contains("error")) << entry;
}

}}
