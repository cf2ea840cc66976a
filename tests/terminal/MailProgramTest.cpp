// The built programs, each in a process of its own.

#include "app/Application.h"
#include "base/Runtime.h"
#include "store/SampleMail.h"
#include "support/EnvironmentGuard.h"
#include "support/Eventually.h"
#include "support/TemporaryDirectory.h"
#include "terminal/CommandSocket.h"
#include "terminal/ConsoleStreams.h"

#include <boost/asio/io_context.hpp>
#include <csignal>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <spawn.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace velmo { namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using nlohmann::json;
using test::eventually;
using test::Outcome;
using testing::HasSubstr;

/// One of the built programs; it is killed when the test is through with it.
class Program {
  public:
    Program(const std::string& name, std::vector<std::string> words, const fs::path& input = "/dev/null") {
        words.insert(words.begin(), std::string(VELMO_PROGRAMS "/") + name);
        std::vector<char*> arguments;
        for (auto& word : words) arguments.push_back(word.data());
        arguments.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, 0, input.c_str(), O_RDONLY, 0);
        posix_spawn_file_actions_addopen(&actions, 1, out().c_str(), O_WRONLY | O_CREAT, 0600);
        posix_spawn_file_actions_addopen(&actions, 2, err().c_str(), O_WRONLY | O_CREAT, 0600);
        EXPECT_EQ(posix_spawn(&process_, arguments[0], &actions, nullptr, arguments.data(), environ), 0);
        posix_spawn_file_actions_destroy(&actions);
    }
    ~Program() {
        if (process_ <= 0) return;
        kill(process_, SIGKILL);
        waitpid(process_, nullptr, 0);
    }
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    void signal(int number) const { kill(process_, number); }

    /// Waits for its end.
    Outcome outcome() {
        int status = 0;
        EXPECT_TRUE(eventually([&] { return waitpid(process_, &status, WNOHANG) == process_; }));
        process_ = -1;
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, test::contentsOf(out()), test::contentsOf(err())};
    }

  private:
    fs::path out() const { return files_ / "out"; }
    fs::path err() const { return files_ / "err"; }

    test::TemporaryDirectory files_;
    pid_t process_ = -1;
};

class MailProgram : public testing::Test {
  protected:
    /// An account whose servers refuse, with the sample mail in its store and one body.
    void addAccount() {
        Runtime runtime;
        runtime.run([&]() -> Async<void> {
            Application application(runtime.executors());
            MailAccount account;
            account.id = sampleAccountID;
            account.email = "ada@localhost";
            account.incoming = account.outgoing = ServerConfig("127.0.0.1", 1, ServerConfig::Security::tls);
            co_await application.accounts().add(account, "secret");
            EXPECT_TRUE(application.keychain().notice()) << "is told once, which must not differ between two runs";
            co_await application.openMail();
            co_await fillWithSamples(application.store().environment().writer, application.clock().now());
            const auto record = application.mail().messages.find(1);
            const auto source =
                sampleSource(record->mailboxPath, static_cast<std::uint32_t>(record->uid), application.clock().now());
            application.store().environment().files.saveBody(
                "Content-Type: application/pdf; name=x.pdf\r\n\r\n" + *source, BodyKey::of(*record));
            co_await application.close();
        });
    }

    static Outcome velmo(std::vector<std::string> words) { return Program("velmo", std::move(words)).outcome(); }

    bool isListening() const { return connectTo(socket_).has_value(); }

    test::TemporaryDirectory home_;
    fs::path socket_ = home_ / "run/velmo-mail.sock";

  private:
    test::EnvironmentGuard homeGuard_{"VELMO_HOME", home_.path().string()};
    test::EnvironmentGuard displayGuard_{"DISPLAY", std::nullopt};
    test::EnvironmentGuard waylandGuard_{"WAYLAND_DISPLAY", std::nullopt};
};

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
    Program refused("velmo", adding, home_ / "password");
    EXPECT_THAT(refused.outcome().err, HasSubstr("127.0.0.1"));
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
