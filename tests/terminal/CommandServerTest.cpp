#include "terminal/CommandServer.h"

#include "base/ManualClock.h"
#include "base/Runtime.h"
#include "base/UserError.h"
#include "support/Hostile.h"
#include "support/TemporaryDirectory.h"
#include "terminal/CommandClient.h"
#include "terminal/CommandSocket.h"
#include "terminal/ConsoleStreams.h"

#include <atomic>
#include <fcntl.h>
#include <future>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <thread>

namespace velmo { namespace {

using namespace std::chrono_literals;
using test::Outcome;
using testing::HasSubstr;

void eventually(const std::function<bool()>& condition) {
    const auto limit = std::chrono::steady_clock::now() + 20s;
    while (!condition() && std::chrono::steady_clock::now() < limit) std::this_thread::sleep_for(1ms);
    EXPECT_TRUE(condition());
}

/// A client that says what it is told to say.
class RawClient {
  public:
    explicit RawClient(const std::filesystem::path& socket) : descriptor_(connectTo(socket).value()) {
        fcntl(descriptor_.get(), F_SETFL, 0); // waits
    }

    void send(BytesView bytes) { ::send(descriptor_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL); }
    void send(FrameType type, BytesView payload) {
        Bytes frame;
        appendFrame(frame, type, payload);
        send(frame);
    }

    /// Waits for it; absent when the server has closed the connection.
    std::optional<Frame> next() {
        for (;;) {
            if (auto frame = reader_.next()) return frame;
            pollfd waiting{descriptor_.get(), POLLIN, 0};
            if (poll(&waiting, 1, 20'000) != 1) ADD_FAILURE() << "the server says nothing";
            std::array<char, 1 << 16> bytes{};
            const ssize_t count = recv(descriptor_.get(), bytes.data(), bytes.size(), 0);
            if (count <= 0) return std::nullopt;
            reader_.append(BytesView(bytes.data(), static_cast<std::size_t>(count)));
        }
    }

    FrameType nextType() {
        const auto frame = next();
        return frame ? frame->type : FrameType{};
    }

  private:
    FileDescriptor descriptor_;
    FrameReader reader_{1 << 20};
};

CommandRequest requestOf(std::vector<std::string> words) {
    CommandRequest request;
    request.words = std::move(words);
    request.directory = "/some/where";
    request.form.inIsTerminal = request.form.outIsTerminal = request.words.front() == "edit";
    return request;
}

/// A server whose commands are made for the test, on a thread of its own; time passes only when the test says so.
class CommandServerTest : public testing::Test {
  protected:
    explicit CommandServerTest(std::string folder = "run") : folder_(std::move(folder)) {}

    void SetUp() override {
        makePrivateDirectory(socket().parent_path());
        hasEnded_ = false;
        std::promise<void> ready;
        thread_ = std::jthread([this, &ready] { serve(ready); });
        ready.get_future().get();
    }

    void TearDown() override {
        quit();
        EXPECT_FALSE(std::filesystem::exists(socket()));
    }

    void quit() {
        if (!thread_.joinable()) return;
        runtime_.cancel();
        while (!hasEnded_) {
            clock_.advance(100ms);
            std::this_thread::sleep_for(1ms);
        }
        thread_.join();
    }

    std::filesystem::path socket() const { return home_.path() / folder_ / "velmo-mail.sock"; }

    /// Runs a command there with the real client.
    std::optional<Outcome> run(std::vector<std::string> words) {
        Runtime runtime;
        test::ConsoleStreams streams;
        SystemClock clock;
        const auto code = runtime.run([&]() -> Async<std::optional<int>> {
            return handOver(socket(), requestOf(words), streams.console(), clock);
        });
        if (!code) return std::nullopt;
        return streams.outcome(*code);
    }

    /// The same without a server between.
    Outcome runHere(std::vector<std::string> words) {
        Runtime runtime;
        test::ConsoleStreams streams;
        const int code = runtime.run([&]() -> Async<int> { return command(requestOf(words), streams.console()); });
        return streams.outcome(code);
    }

    ManualClock clock_;
    std::atomic<int> waiting_ = 0;
    std::atomic<int> cancelled_ = 0;
    std::atomic<int> activated_ = 0;
    std::atomic<std::size_t> streamed_ = 0;

  private:
    void serve(std::promise<void>& ready) {
        runtime_.run([&]() -> Async<void> {
            CommandHooks hooks;
            hooks.accepts = [](const CommandRequest& request) { return request.words.at(0) != "elsewhere"; };
            hooks.run = [this](CommandRequest request, Console& console) {
                return command(std::move(request), console);
            };
            hooks.activate = [this] { ++activated_; };
            CommandServer server(runtime_.executors(), clock_, socket(), std::move(hooks));
            server.start();
            ready.set_value();
            try {
                co_await waitForever();
            } catch (const std::exception&) {
            }
            co_await ignoreCancellation();
            co_await server.stop();
        });
        hasEnded_ = true;
    }

    Async<void> waitForever() {
        SystemClock clock;
        for (;;) co_await clock.wait(1h);
    }

    Async<int> command(CommandRequest request, Console& console) {
        const std::string& word = request.words.at(0);
        if (word == "show") show(request, console);
        if (word == "fail") throw UserError("It can't be done.");
        if (word == "wait") co_await waitUntilCancelled();
        if (word == "stream") co_await stream(console);
        if (word == "flood") {
            for (int i = 0; i < 100; ++i) console.bytes(Bytes(1 << 20, 'x'));
            co_await waitUntilCancelled();
        }
        if (word == "ask") {
            const auto secret = co_await console.askSecret("Secret: ");
            const auto line = co_await console.readLineFromInput();
            console.line(secret.value_or("none") + "," + line.value_or("none"));
        }
        if (word == "edit") {
            const auto edited = co_await console.editText(test::repeated("as it stands\n", 50'000));
            console.line(edited);
        }
        co_return word == "show" ? 7 : 0;
    }

    void show(const CommandRequest& request, Console& console) {
        for (const auto& text : request.words) console.line(text);
        console.note(request.directory.string());
        console.progress("not on a terminal");
        console.bytes(Bytes("\0\xff\r\n", 4));
        console.line(console.styled(Console::Style::bold, std::to_string(console.width())));
        console.bytes(test::repeated("0123456789", 30'000));
        console.note({});
    }

    Async<void> stream(Console& console) {
        for (;;) {
            console.bytes(Bytes(10'000, 'x'));
            streamed_ += 10'000;
            co_await console.caughtUp();
        }
    }

    Async<void> waitUntilCancelled() {
        ++waiting_;
        try {
            co_await waitForever();
        } catch (...) {
            ++cancelled_;
            throw;
        }
    }

    std::string folder_;
    test::TemporaryDirectory home_;
    Runtime runtime_;
    std::atomic<bool> hasEnded_ = false;
    std::jthread thread_;
};

TEST_F(CommandServerTest, GivesWhatTheCommandGivesInItsOwnProcess) {
    for (const std::vector<std::string>& words :
         std::vector<std::vector<std::string>>{{"show", "ünï", "b\xFFyte", "", "two\nlines"}, {"fail"}, {"nothing"}}) {
        if (words[0] == "fail") {
            EXPECT_EQ(run(words), (Outcome{1, "", "It can't be done.\n"}));
        } else {
            EXPECT_EQ(run(words), runHere(words));
        }
    }
    EXPECT_EQ(run({"elsewhere"}), std::nullopt);
    EXPECT_EQ(run({"show"})->code, 7);

    Runtime runtime;
    SystemClock clock;
    EXPECT_TRUE(runtime.run([&] { return activateRunning(socket(), clock); }));
    EXPECT_EQ(activated_, 1);
    quit();
    EXPECT_EQ(run({"show"}), std::nullopt);
    EXPECT_FALSE(runtime.run([&] { return activateRunning(socket(), clock); }));
}

TEST_F(CommandServerTest, ClosesOnHostileClientsAndServesTheOthers) {
    const auto frame = [](FrameType type, BytesView payload) {
        Bytes bytes;
        appendFrame(bytes, type, payload);
        return bytes;
    };
    const auto altered = [&](const char* key, nlohmann::json value) {
        auto document = nlohmann::json::parse(requestOf({"show"}).encoded());
        document[key] = std::move(value);
        return frame(FrameType::command, document.dump());
    };
    const std::pair<const char*, Bytes> cases[]{
        {"endless length", "C\xFF\xFF\xFF\xFF"},
        {"too long", Bytes("C\x00\x10\x00\x01", 5)},
        {"another protocol", "GET / HTTP/1.1\r\n\r\n"},
        {"no request", frame(FrameType::answer, "x")},
        {"unknown type", frame(FrameType{'?'}, "x")},
        {"no JSON", frame(FrameType::command, "{")},
        {"deep JSON", frame(FrameType::command, Bytes(longestRequest, '['))},
        {"no object", frame(FrameType::command, "[1]")},
        {"words missing", frame(FrameType::command, R"({"directory": "/"})")},
        {"words no array", altered("words", "show")},
        {"words of numbers", altered("words", {1, 2})},
        {"NUL in a word", altered("words", {Bytes("a\0b", 3)})},
        {"relative directory", altered("directory", "here")},
        {"width no number", altered("width", "wide")},
    };
    for (const auto& [name, bytes] : cases) {
        SCOPED_TRACE(name);
        RawClient client(socket());
        client.send(bytes);
        EXPECT_EQ(client.next(), std::nullopt);
    }
    for (const auto& [name, bytes] : cases) RawClient(socket()).send(BytesView(bytes).substr(0, bytes.size() / 2));

    RawClient babbling(socket());
    babbling.send(FrameType::command, requestOf({"wait"}).encoded());
    EXPECT_EQ(babbling.nextType(), FrameType::taken);
    babbling.send(FrameType::answer, "nobody asked");
    EXPECT_EQ(babbling.nextType(), FrameType{});
    EXPECT_EQ(cancelled_, 1);

    RawClient wide(socket());
    wide.send(altered("width", 4'000'000'000U));
    EXPECT_EQ(wide.nextType(), FrameType::taken);
    EXPECT_THAT(wide.next()->payload, HasSubstr("show"));
    EXPECT_EQ(run({"show"}), runHere({"show"}));
}

TEST_F(CommandServerTest, CutsOffWhoIsSlowAndOutlastsAFlood) {
    RawClient slow(socket());
    slow.send("C");
    eventually([&] { return clock_.waiting() == 1; });
    slow.send(BytesView("\0\0", 2));
    clock_.advance(CommandConnection::patience);
    EXPECT_EQ(slow.next(), std::nullopt);

    // More than are served at a time; they wait, and each one that says nothing goes after a while.
    std::vector<RawClient> idle;
    for (int i = 0; i < 3000; ++i) idle.emplace_back(socket());
    eventually([&] { return clock_.waiting() == CommandServer::mostClients; });
    auto command = std::async(std::launch::async, [&] { return run({"nothing"}); });
    idle.erase(idle.begin() + 1000, idle.end());
    eventually([&] {
        clock_.advance(CommandConnection::patience);
        return command.wait_for(0s) == std::future_status::ready;
    });
    EXPECT_EQ(command.get(), runHere({"nothing"}));
}

TEST_F(CommandServerTest, ClientThatGoesCancelsItsCommandOnly) {
    std::optional<RawClient> going(std::in_place, socket()), staying(std::in_place, socket());
    for (auto* client : {&*going, &*staying}) {
        client->send(FrameType::command, requestOf({"wait"}).encoded());
        EXPECT_EQ(client->nextType(), FrameType::taken);
    }
    eventually([&] { return waiting_ == 2; });
    going.reset();
    eventually([&] { return cancelled_ == 1; });
    EXPECT_EQ(run({"nothing"})->code, 0);
    EXPECT_EQ(cancelled_, 1);

    // The real client takes its cancellation there.
    Runtime runtime;
    std::jthread interrupting([&] {
        eventually([&] { return waiting_ == 3; });
        runtime.cancel();
    });
    test::ConsoleStreams streams;
    SystemClock clock;
    EXPECT_ANY_THROW(runtime.run([&] { return handOver(socket(), requestOf({"wait"}), streams.console(), clock); }));
    eventually([&] { return cancelled_ == 2; });

    quit();
    EXPECT_EQ(cancelled_, 3);
    EXPECT_THAT(staying->next()->payload, HasSubstr("has quit"));
    EXPECT_EQ(staying->next()->payload, "1");
}

TEST_F(CommandServerTest, ClientThatDoesNotReadHoldsUpNobody) {
    RawClient stopped(socket()), flooded(socket());
    stopped.send(FrameType::command, requestOf({"stream"}).encoded());
    eventually([&] { return streamed_ > 100'000; });
    EXPECT_EQ(run({"show"}), runHere({"show"}));
    EXPECT_LT(streamed_, 2U << 20) << "a command that waits for its reader runs ahead of them";
    const std::size_t before = streamed_;
    EXPECT_EQ(stopped.nextType(), FrameType::taken);
    for (int i = 0; i < 100; ++i) EXPECT_EQ(stopped.nextType(), FrameType::output);
    eventually([&] { return streamed_ > before; });

    flooded.send(FrameType::command, requestOf({"flood"}).encoded());
    eventually([&] { return cancelled_ == 1; });
    EXPECT_EQ(flooded.nextType(), FrameType::taken);
    std::size_t received = 0;
    auto frame = flooded.next();
    for (; frame && frame->type == FrameType::output; frame = flooded.next()) received += frame->payload.size();
    EXPECT_GE(received, CommandConnection::mostUnsent);
    EXPECT_LE(received, CommandConnection::mostUnsent + (2U << 20));
    ASSERT_TRUE(frame);
    EXPECT_THAT(frame->payload, HasSubstr("not read"));
    EXPECT_EQ(flooded.next()->payload, "1");
}

TEST_F(CommandServerTest, AsksThePersonAtTheOtherEnd) {
    RawClient client(socket());
    client.send(FrameType::command, requestOf({"ask"}).encoded());
    EXPECT_EQ(client.nextType(), FrameType::taken);
    const auto question = client.next();
    EXPECT_EQ(question->type, FrameType::askSecret);
    EXPECT_EQ(question->payload, "Secret: ");
    client.send(FrameType::answer, "s3cret");
    EXPECT_EQ(client.nextType(), FrameType::askLine);
    client.send(FrameType::noAnswer, {});
    // How the output is cut into frames is not told.
    std::string output;
    auto frame = client.next();
    for (; frame && frame->type == FrameType::output; frame = client.next()) output += frame->payload;
    EXPECT_EQ(output, "s3cret,none\n");
    ASSERT_TRUE(frame);
    EXPECT_EQ(frame->payload, "0");

    RawClient silent(socket());
    silent.send(FrameType::command, requestOf({"ask"}).encoded());
    EXPECT_EQ(silent.nextType(), FrameType::taken);
    EXPECT_EQ(silent.nextType(), FrameType::askSecret);
}

TEST_F(CommandServerTest, HasATextEditedAtTheOtherEnd) {
    const Bytes longest(longestAnswer, 'x');
    struct Case {
        FrameType type;
        Bytes payload;
        FrameType outcome;
        std::string said;
    };
    const Case cases[]{
        {FrameType::answer, "bad \xFF", FrameType::output, "bad \uFFFD\n"},
        {FrameType::answer, longest, FrameType::output, longest + "\n"},
        {FrameType::editFailed, "It broke.", FrameType::error, "It broke.\n"},
        {FrameType::noAnswer, "", FrameType::error, "There is no terminal to edit a text on.\n"},
    };
    for (const auto& [type, payload, outcome, said] : cases) {
        RawClient client(socket());
        client.send(FrameType::command, requestOf({"edit"}).encoded());
        EXPECT_EQ(client.nextType(), FrameType::taken);
        const auto question = client.next();
        EXPECT_EQ(question->type, FrameType::editText);
        EXPECT_EQ(question->payload.size(), 650'000U);
        std::jthread sending([&] { client.send(type, payload); });
        std::string output;
        auto frame = client.next();
        for (; frame && frame->type == outcome; frame = client.next()) output += frame->payload;
        EXPECT_EQ(output, said);
        ASSERT_TRUE(frame);
        EXPECT_EQ(frame->type, FrameType::end);
    }

    // A secret is given or not; that it could not be edited is no answer.
    RawClient confused(socket());
    confused.send(FrameType::command, requestOf({"ask"}).encoded());
    EXPECT_EQ(confused.nextType(), FrameType::taken);
    EXPECT_EQ(confused.nextType(), FrameType::askSecret);
    confused.send(FrameType::editFailed, "no");
    EXPECT_EQ(confused.nextType(), FrameType{});

    // The real client is no terminal here, whatever the request says.
    EXPECT_EQ(run({"edit"}), (Outcome{1, "", "There is no terminal to edit a text on.\n"}));
}

/// Below a path that is longer than an address holds.
class DeepCommandServerTest : public CommandServerTest {
  protected:
    DeepCommandServerTest() : CommandServerTest(test::repeated("deep/", 40)) {}
};

TEST_F(DeepCommandServerTest, SocketIsOfOnePersonAndTakesThePlaceOfAnOldOne) {
    struct stat status {};
    ASSERT_EQ(stat(socket().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600U);
    ASSERT_EQ(stat(socket().parent_path().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0700U);
    EXPECT_EQ(run({"nothing"})->code, 0);
    quit();
    { const FileDescriptor left = listenAt(socket()); }
    EXPECT_TRUE(std::filesystem::exists(socket()));
    EXPECT_EQ(run({"nothing"}), std::nullopt);
    SetUp();
    EXPECT_EQ(run({"nothing"})->code, 0);
}

}}
