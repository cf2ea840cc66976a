#include "protocols/MailConnection.h"

#include "platform/NetworkPath.h"
#include "protocols/IMAPClientFixture.h"
#include "protocols/NameLookup.h"
#include "protocols/NetworkMonitor.h"
#include "protocols/SocketConnector.h"

#include <algorithm>
#include <atomic>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <future>
#include <gtest/gtest.h>
#include <sys/socket.h>

namespace velmo::test { namespace {

using Failure = MailConnectionError;

struct Rig {
    Rig(int port, Clock& clock, ServerConfig::Security security = ServerConfig::Security::startTLS,
        const std::string& host = "127.0.0.1")
        : strand(makeStrand(runtime.executors().io)),
          connection(std::make_shared<MailConnection>(strand, clock, host, port, security)) {}

    /// Runs on the connection's executor.
    template <class F>
    auto run(F operation) {
        return runtime.run([&] { return runOn(strand, operation); });
    }
    template <class F>
    std::optional<MailConnectionError> failure(F operation) {
        try {
            run(operation);
            return std::nullopt;
        } catch (const MailConnectionError& error) {
            return error;
        }
    }

    Runtime runtime;
    Executor strand;
    std::shared_ptr<MailConnection> connection;
};

constexpr Duration patience{20'000};

TEST(MailConnection, ReadsLinesAndBytesHoweverTheyArrive) {
    SystemClock clock;
    for (const auto security : {ServerConfig::Security::tls, ServerConfig::Security::startTLS}) {
        forEachCut([&](Cut cut) {
            const bool isTLS = security == ServerConfig::Security::tls;
            ScriptedServer server("S> one\\r\\n\\r\\nlf\\nonly\\rcr\\r\\n12345\\xff\\r\\nlast\nCLOSE\n",
                                  {isTLS ? ScriptedServer::Security::tls : ScriptedServer::Security::plain, cut});
            Rig rig(server.port(), clock, security);
            MailConnection& connection = *rig.connection;
            rig.run([&]() -> Async<void> {
                std::vector<std::string> got;
                for (int i = 0; i < 3; ++i) got.push_back(co_await connection.readLine(patience));
                got.push_back(co_await connection.readBytes(0, patience));
                got.push_back(co_await connection.readBytes(5, patience));
                got.push_back(co_await connection.readLine(patience));
                got.push_back(co_await connection.readBytes(4, patience));
                EXPECT_EQ(got,
                          (std::vector<std::string>{"one", "", "lf\nonly\rcr", "", "12345", "\xEF\xBF\xBD", "last"}));
            });
            EXPECT_EQ(rig.failure([&]() -> Async<void> { co_await connection.readLine(patience); }),
                      Failure::closed("127.0.0.1"));
        });
    }
}

TEST(MailConnection, ATimeOutLeavesTheStreamAndWhatHasArrived) {
    ManualClock clock;
    ScriptedServer server("S> half \nPAUSE\nS: done\n", {ScriptedServer::Security::tls});
    Rig rig(server.port(), clock, ServerConfig::Security::tls);
    rig.run([&]() -> Async<void> {
        const Bytes first = co_await rig.connection->readBytes(2, Duration(60'000));
        EXPECT_EQ(first, "ha");
    });
    std::optional<MailConnectionError> failure;
    Task task(rig.strand, [&]() -> Async<void> {
        try {
            co_await runOn(rig.strand, [&]() -> Async<void> { co_await rig.connection->readLine(Duration(5'000)); });
        } catch (const MailConnectionError& error) {
            failure = error;
        }
    });
    ASSERT_TRUE(eventually([&] { return clock.isDueIn(Duration(5'000)); }));
    clock.advance(Duration(5'000));
    rig.runtime.run([&] { return task.finished(); });
    EXPECT_EQ(failure, Failure::cannotConnect("127.0.0.1"));
    server.proceed();
    rig.run([&]() -> Async<void> {
        const std::string line = co_await rig.connection->readLine(Duration(60'000));
        EXPECT_EQ(line, "lf done");
    });
}

TEST(MailConnection, ALongWriteGoesOnAsLongAsTheLineMoves) {
    ManualClock clock;
    // More than the buffers on the way take.
    constexpr std::size_t part = 12'000'000;
    ScriptedServer server("C> 12000000\nPAUSE\nC> 12000000\nPAUSE\nC> 12000000\nPAUSE\n");
    Rig rig(server.port(), clock);
    std::optional<MailConnectionError> failure;
    Task task(rig.strand, [&]() -> Async<void> {
        try {
            co_await rig.connection->write(Bytes(6 * part, 'x'));
        } catch (const MailConnectionError& error) {
            failure = error;
        }
    });
    const Duration most = MailConnection::writeTimeout;
    for (std::size_t i = 1; i <= 3; ++i) {
        ASSERT_TRUE(eventually([&] { return server.received().size() >= i * part && clock.waiting() > 0; }));
        clock.advance(most * 2 / 3);
        ASSERT_FALSE(task.isFinished());
        if (i < 3) server.proceed();
    }
    clock.advance(most);
    rig.runtime.run([&] { return task.finished(); });
    EXPECT_EQ(failure, Failure::cannotConnect("127.0.0.1"));
}

TEST(MailConnection, EveryOtherFailureIsToldByHost) {
    SystemClock clock;
    ScriptedServer silent("PAUSE\n");
    ScriptedServer resetting("RESET\n");
    ScriptedServer plain("S: hello, this is no TLS\n");
    const auto readFrom = [&](const std::string& host, int port, ServerConfig::Security security, Duration timeout) {
        Rig rig(port, clock, security, host);
        return rig.failure([&]() -> Async<void> { co_await rig.connection->readLine(timeout); });
    };
    const auto tls = ServerConfig::Security::tls;
    const auto startTLS = ServerConfig::Security::startTLS;
    EXPECT_EQ(readFrom("127.0.0.1", 1, startTLS, patience), Failure::cannotConnect("127.0.0.1"));
    EXPECT_EQ(readFrom("no.such.host.invalid", 1, startTLS, patience), Failure::cannotConnect("no.such.host.invalid"));
    EXPECT_EQ(readFrom("127.0.0.1", silent.port(), tls, Duration(1)), Failure::cannotConnect("127.0.0.1"));
    EXPECT_EQ(readFrom("127.0.0.1", resetting.port(), startTLS, patience), Failure::cannotConnect("127.0.0.1"));
    EXPECT_EQ(readFrom("127.0.0.1", plain.port(), tls, patience), Failure::cannotConnect("127.0.0.1"));
}

TEST(MailConnection, ClosingEndsAPendingRead) {
    SystemClock clock;
    ScriptedServer server("C: x\n");
    Rig rig(server.port(), clock);
    rig.run([&]() -> Async<void> { co_await rig.connection->write("x\r\n"); });
    std::optional<MailConnectionError> failure;
    Task task(rig.strand, [&]() -> Async<void> {
        try {
            co_await runOn(rig.strand, [&]() -> Async<void> { co_await rig.connection->readLine(patience); });
        } catch (const MailConnectionError& error) {
            failure = error;
        }
    });
    ASSERT_EQ(server.verdict(), "");
    rig.run([&]() -> Async<void> {
        rig.connection->close();
        co_return;
    });
    rig.runtime.run([&] { return task.finished(); });
    EXPECT_EQ(failure, Failure::cannotConnect("127.0.0.1"));
}

TEST(SocketConnector, TriesTheNextAddressWhenOneIsDeadOrSilent) {
    namespace ip = boost::asio::ip;
    using connector::Endpoint;
    SystemClock clock;
    ScriptedServer server("---\n---\n");
    Runtime runtime;
    // A listener whose queue is full answers no further attempt.
    boost::asio::io_context context;
    ip::tcp::acceptor full(context, ip::tcp::endpoint(ip::make_address("127.0.0.2"), 0));
    full.listen(0);
    std::vector<ip::tcp::socket> queued;
    for (int i = 0; i < 4; ++i) {
        queued.emplace_back(context, ip::tcp::v4());
        queued.back().async_connect(full.local_endpoint(), [](const boost::system::error_code&) {});
    }
    context.poll();
    const Endpoint good("127.0.0.1", server.port());
    const Endpoint refused("127.0.0.1", 1);
    const Endpoint silent("127.0.0.2", full.local_endpoint().port());
    const std::vector<Endpoint> orders[] = {{refused, good}, {silent, good}, {good, refused}};
    for (const auto& endpoints : orders) {
        const int before = server.connections();
        runtime.run([&]() -> Async<void> {
            const FileDescriptor socket = co_await connector::connectFirst(clock, endpoints);
            EXPECT_TRUE(socket);
        });
        EXPECT_TRUE(eventually([&] { return server.connections() == before + 1; }));
    }
    const Endpoint six("::1", 1);
    EXPECT_EQ(connector::interleaved({good, refused, six}), (std::vector<Endpoint>{six, good, refused}));
}

TEST(NameLookup, AHangingOneHoldsUpNeitherOthersNorTheEnd) {
    using connector::Endpoint;
    std::promise<void> release;
    const auto released = release.get_future().share();
    const auto hanging = [released](const std::string&, int) {
        released.wait();
        return connector::LookupResult();
    };
    const auto quick = [](const std::string& host, int port) {
        return connector::LookupResult{{}, {Endpoint(host, port)}};
    };
    {
        Runtime runtime;
        const auto wait = [&hanging]() -> Async<void> { co_await connector::lookUp("hangs", 1, hanging); };
        Task abandoned(runtime.executors().main, wait), left(runtime.executors().main, wait);
        runtime.run([&]() -> Async<void> {
            const auto found = co_await connector::lookUp("there", 9, quick);
            EXPECT_EQ(found, (std::vector{Endpoint("there", 9)}));
            abandoned.cancel();
            co_await abandoned.finished();
            const auto system = co_await connector::lookUp("localhost", 25, connector::systemLookup);
            EXPECT_TRUE(std::ranges::count(system, Endpoint("127.0.0.1", 25)) +
                            std::ranges::count(system, Endpoint("::1", 25)) >
                        0);
            const auto failing = [] { return connector::lookUp("no.such.host.invalid", 1, connector::systemLookup); };
            EXPECT_TRUE(co_await detail::caught([&]() -> Async<void> { co_await failing(); }));
        });
        left.cancel();
    }
    release.set_value();
}

TEST(NetworkMonitor, TellsOnlyRealChanges) {
    Runtime runtime;
    ManualClock clock;
    MemoryNetworkPath path;
    NetworkMonitor monitor(runtime.executors().main, clock, path);
    std::string seen;
    monitor.isOnline.onChange([&] { seen += *monitor.isOnline ? '+' : '-'; });
    monitor.cameBackAt.onChange([&] { seen += *monitor.isOnline ? '?' : '@'; });
    const auto report = [&](bool isSatisfied) {
        path.report(isSatisfied);
        runtime.run([]() -> Async<void> { co_return; });
    };
    report(true);
    EXPECT_FALSE(*monitor.cameBackAt);
    report(false);
    report(false);
    clock.advance(Duration(1'000));
    report(true);
    report(true);
    EXPECT_EQ(*monitor.cameBackAt, clock.now());
    report(false);
    EXPECT_EQ(seen, "-@+-");
    const auto system = systemNetworkPath(runtime.executors().io);
    std::atomic<int> calls = 0;
    system->start([&](bool) { ++calls; });
    EXPECT_TRUE(eventually([&] { return calls > 0; }));
}

}}
