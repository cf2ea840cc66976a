// The built programs, each in a process of its own.

#include "store/SampleMail.h"
#include "support/Eventually.h"
#include "terminal/Program.h"
#include "terminal/ProgramHome.h"

#include <boost/asio/io_context.hpp>
#include <csignal>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <thread>

namespace velmo { namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using nlohmann::json;
using test::eventually;
using test::Outcome;
using test::Program;
using test::velmo;
using testing::HasSubstr;

class MailProgram : public test::ProgramHome {};

TEST_F(MailProgram, CarriesOutCommandsAsTheyAreInAProcessOfTheirOwn) {
    addAccount();
    const std::vector<std::vector<std::string>> commands{{"--json", "mailboxes"},
                                                         {"list"},
                                                         {"--json", "list", "--limit", "3"},
                                                         {"list", "--mailbox", "No/Such"},
                                                         {"read", "999999"},
                                                         {"--json", "accounts"},
                                                         {"accounts", "remove", "nobody@localhost"},
                                                         {"read", "1"},
                                                         {"read", "1", "--source"},
                                                         {"read", "--file", "no such file"},
                                                         {"list", "--limit", "x"}};
    std::vector<Outcome> here;
    for (const auto& words : commands) here.push_back(velmo(words));

    Program application("velmo-mail", {});
    ASSERT_TRUE(eventually([&] { return isListening(); }));
    for (std::size_t i = 0; i < commands.size(); ++i)
        EXPECT_EQ(velmo(commands[i]), here[i]) << testing::PrintToString(commands[i]);
    EXPECT_TRUE(json::parse(velmo({"--json", "status"}).out)["isRunning"]);
    EXPECT_EQ(json::parse(here[0].out).size(), sampleMailboxes().size());

    // What is saved lies where the person is, not where the application is.
    fs::create_directory(home_ / "there");
    const auto before = fs::current_path();
    fs::current_path(home_ / "there");
    EXPECT_EQ(velmo({"read", "1", "--save", "out"}).code, 0);
    fs::current_path(before);
    EXPECT_TRUE(fs::exists(home_ / "there/out/x.pdf"));

    Program watching("velmo", {"watch"}), interrupted("velmo", {"watch"});
    Program second("velmo-mail", {});
    EXPECT_EQ(second.outcome().code, 0);
    ASSERT_TRUE(isListening());
    std::this_thread::sleep_for(200ms);
    interrupted.signal(SIGINT);
    EXPECT_EQ(interrupted.outcome(), (Outcome{1, "", "Interrupted.\n"}));

    application.signal(SIGTERM);
    const Outcome ended = application.outcome();
    EXPECT_EQ(ended.code, 0);
    EXPECT_THAT(ended.err, HasSubstr("without a window"));
    EXPECT_FALSE(fs::exists(socket_));
    EXPECT_EQ(watching.outcome(), (Outcome{1, "", "Velmo-Mail has quit.\n"}));
    EXPECT_EQ(velmo(commands[0]), here[0]);
}

TEST_F(MailProgram, WaitsForACommandThatHasTheMailOpen) {
    addAccount();
    boost::asio::io_context main;
    auto command = ModelContainer::open(home_ / "data/Mail.sqlite", main.get_executor());
    Program application("velmo-mail", {});
    ASSERT_TRUE(eventually([&] { return fs::exists(home_ / "run/velmo-mail.lock"); }));
    std::this_thread::sleep_for(300ms);
    EXPECT_FALSE(isListening());
    command.reset();
    ASSERT_TRUE(eventually([&] { return isListening(); }));
    application.signal(SIGTERM);
    const Outcome ended = application.outcome();
    EXPECT_EQ(ended.code, 0) << ended.err;
}

TEST_F(MailProgram, StartsAnewAfterACrashAndRunsWithoutAnAccount) {
    const Outcome samples = velmo({"--json", "mailboxes"});
    Program crashing("velmo-mail", {});
    ASSERT_TRUE(eventually([&] { return isListening(); }));
    EXPECT_EQ(velmo({"--json", "mailboxes"}), samples);
    crashing.signal(SIGKILL);
    EXPECT_EQ(crashing.outcome().code, -1);
    EXPECT_TRUE(fs::exists(socket_));
    EXPECT_EQ(velmo({"--json", "mailboxes"}), samples);

    Program application("velmo-mail", {});
    ASSERT_TRUE(eventually([&] { return isListening(); }));
    test::writeFile(home_ / "password", "secret\n");
    const std::vector<std::string> adding{
        "accounts",        "add",    "--email",         "ada@localhost.invalid", "--imap",
        "127.0.0.1:1:tls", "--smtp", "127.0.0.1:1:tls", "--password-stdin"};
    EXPECT_THAT(velmo(adding, home_ / "password").err, HasSubstr("127.0.0.1"));
    EXPECT_THAT(velmo(adding).err, HasSubstr("no password on standard input"));
    application.signal(SIGINT);
    EXPECT_EQ(application.outcome().code, 0);
    EXPECT_FALSE(fs::exists(home_ / "data/Mail.sqlite"));
}

TEST_F(MailProgram, EndsWithASentenceWhenItCannotRun) {
    for (const auto& words : std::vector<std::vector<std::string>>{{"--mcp"}, {"list", "--mcp", "x"}}) {
        const Outcome bridge = Program("velmo-mail", words).outcome();
        EXPECT_EQ(bridge.code, 1);
        EXPECT_FALSE(bridge.err.empty());
        EXPECT_FALSE(fs::exists(home_ / "run"));
    }
    EXPECT_EQ(Program("velmo-mail", {"unknown"}).outcome().code, 2);
    EXPECT_EQ(Program("velmo-mail", {"--help"}).outcome().code, 0);

    addAccount();
    const auto database = home_ / "data/Mail.sqlite";
    test::writeFile(database, "no database at all, but long enough to be looked at as one");
    const Outcome broken = Program("velmo-mail", {}).outcome();
    EXPECT_EQ(broken.code, 1);
    EXPECT_THAT(broken.err, testing::EndsWith(".\n"));
    EXPECT_FALSE(fs::exists(socket_));
}

}}
