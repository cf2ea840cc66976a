#include "app/Application.h"
#include "records/ModelContainer.h"
#include "support/EnvironmentGuard.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

namespace velmo::test { namespace {

/// Opens the mail as a process of its own, until the pipe is closed; tells once it has it.
[[noreturn]] void holdMail(int told, int untilClosed) {
    try {
        Runtime runtime;
        Application application(runtime.executors());
        MailAccount account;
        account.id = UUID::random();
        account.email = account.username = "alice@example.test";
        account.incoming = account.outgoing = ServerConfig("127.0.0.1", 1, ServerConfig::Security::tls);
        runtime.run([&]() -> Async<void> { co_await application.accounts().add(account, "x"); });
        runtime.run([&] { return application.openMail(); });
        char byte = 'x';
        if (::write(told, &byte, 1) != 1 || ::read(untilClosed, &byte, 1) != 0) ::_exit(2);
        runtime.run([&] { return application.close(); });
    } catch (...) {
        ::_exit(1);
    }
    ::_exit(0);
}

/// Whoever reads the outbox sets a damaged file aside, and removes what was never written to its end.
TEST(Installation, LeavesTheOutboxToTheProcessThatHasTheMail) {
    const TemporaryDirectory home;
    const EnvironmentGuard guard("VELMO_HOME", home.path().string());
    int told[2], held[2];
    ASSERT_EQ(::pipe(told) + ::pipe(held), 0);
    const auto child = ::fork();
    if (child == 0) {
        ::close(held[1]);
        holdMail(told[1], held[0]);
    }
    ::close(told[1]);
    char byte = 0;
    ASSERT_EQ(::read(told[0], &byte, 1), 1);
    const auto outbox = home.path() / "data/Outbox";
    std::filesystem::create_directories(outbox);
    const auto damaged = outbox / (UUID::random().text() + ".json"), unfinished = outbox / ".unfinished";
    writeFile(damaged, "{");
    writeFile(unfinished, "{");

    Runtime runtime;
    Application second(runtime.executors());
    const auto open = [&] { runtime.run([&] { return second.openMail(); }); };
    EXPECT_THROW(open(), ModelStoreError);
    EXPECT_FALSE(second.isOpen());
    EXPECT_EQ(second.outbox(), nullptr);
    EXPECT_TRUE(std::filesystem::exists(damaged) && std::filesystem::exists(unfinished));

    ::close(held[1]);
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    open();
    runtime.run([&] { return second.outbox()->loaded(); });
    EXPECT_FALSE(std::filesystem::exists(damaged) || std::filesystem::exists(unfinished));
    runtime.run([&] { return second.close(); });
    for (const int end : {told[0], held[0]}) ::close(end);
}

}}
