#include "base/Async.h"

#include "base/Clock.h"
#include "base/ManualClock.h"
#include "base/Observed.h"
#include "base/Runtime.h"
#include "base/Task.h"
#include "base/UserError.h"

#include <atomic>
#include <gtest/gtest.h>
#include <stdexcept>
#include <thread>

namespace velmo { namespace {

using namespace std::chrono_literals;

/// Lets the other executors run until `condition` holds; a test that never gets there fails by its own time-out.
template <class Condition>
Async<void> until(Condition condition) {
    SystemClock clock;
    while (!condition()) co_await clock.wait(1ms);
}

TEST(RunOn, HopsOnceThereAndBackWithResultAndFailure) {
    Runtime runtime;
    runtime.run([&]() -> Async<void> {
        const auto home = std::this_thread::get_id();
        const int value = co_await runOn(runtime.executors().background, [&]() -> Async<int> {
            EXPECT_NE(std::this_thread::get_id(), home);
            co_return 42;
        });
        EXPECT_EQ(value, 42);
        EXPECT_EQ(std::this_thread::get_id(), home);

        std::string seen;
        try {
            co_await callOn(runtime.executors().io, [] { throw std::runtime_error("from the other side"); });
        } catch (const std::runtime_error& error) {
            seen = error.what();
        }
        EXPECT_EQ(seen, "from the other side");
        EXPECT_EQ(std::this_thread::get_id(), home);
    });
}

TEST(SystemClock, WaitsAsLongAsItIsToldOrUntilItIsCancelled) {
    Runtime runtime;
    SystemClock clock;
    runtime.run([&]() -> Async<void> {
        for (const Duration time : {-1'000ms, 0ms, 1ms, 30ms}) {
            const Instant start = clock.instant();
            co_await clock.wait(time);
            EXPECT_GE(clock.instant() - start, time);
        }
        // Many at once, of which one is short.
        std::string ended;
        co_await both(
            [&]() -> Async<void> {
                co_await within(clock, 20ms, [&] { return clock.wait(1h); });
                ended += "cancelled ";
            },
            [&]() -> Async<void> {
                co_await clock.wait(60ms);
                ended += "waited";
            });
        EXPECT_EQ(ended, "cancelled waited");
    });
}

TEST(RunOn, CancellationReachesTheOtherSideAndIsWaitedFor) {
    Runtime runtime;
    ManualClock clock;
    std::atomic<bool> cleaned = false;
    Task task(runtime.executors().main, [&]() -> Async<void> {
        co_await runOn(makeStrand(runtime.executors().io), [&]() -> Async<void> {
            try {
                co_await clock.wait(1h);
            } catch (const Cancelled&) {
                cleaned = true;
                throw;
            }
        });
    });
    runtime.run([&]() -> Async<void> {
        co_await until([&] { return clock.waiting() == 1; });
        task.cancel();
        co_await task.finished();
    });
    EXPECT_TRUE(cleaned);
    EXPECT_EQ(clock.waiting(), 0U);
}

TEST(RunOn, SurvivesCancellationThatMeetsCompletion) {
    Runtime runtime;
    std::atomic<int> ended = 0;
    runtime.run([&]() -> Async<void> {
        for (int i = 0; i < 2000; ++i) {
            Task task(runtime.executors().main, [&]() -> Async<void> {
                for (int k = 0; k < 3; ++k) co_await callOn(runtime.executors().background, [] {});
                ++ended;
            });
            co_await callOn(runtime.executors().io, [&] { task.cancel(); });
            co_await task.finished();
        }
    });
    EXPECT_LE(ended, 2000);
}

TEST(Tasks, DroppingTheHandleCancels) {
    Runtime runtime;
    ManualClock clock;
    runtime.run([&]() -> Async<void> {
        {
            const Task task(runtime.executors().background, [&]() -> Async<void> { co_await clock.wait(1h); });
            co_await until([&] { return clock.waiting() == 1; });
        }
        co_await until([&] { return clock.waiting() == 0; });
    });
}

TEST(Tasks, FailuresAreKeptCancellationsAreNot) {
    Runtime runtime;
    ManualClock clock;
    runtime.run([&]() -> Async<void> {
        Task failing(runtime.executors().background, []() -> Async<void> {
            throw std::runtime_error("broken");
            co_return;
        });
        bool threw = false;
        try {
            co_await failing.finished();
        } catch (const std::runtime_error&) {
            threw = true;
        }
        EXPECT_TRUE(threw);
        EXPECT_TRUE(failing.isFinished());

        Task cancelled(runtime.executors().main, [&]() -> Async<void> { co_await clock.wait(1h); });
        cancelled.cancel();
        co_await cancelled.finished();
        EXPECT_TRUE(cancelled.isFinished());
        co_await Task().finished();
    });
}

TEST(Cancellation, CanBeHeldOffToFinishWhatMustNotBeCut) {
    Runtime runtime;
    ManualClock clock;
    bool finished = false, noticed = false;
    runtime.run([&]() -> Async<void> {
        Task task(runtime.executors().main, [&]() -> Async<void> {
            try {
                co_await clock.wait(1h);
            } catch (const Cancelled&) {
            }
            co_await ignoreCancellation();
            co_await clock.wait(1s);
            finished = true;
            co_await allowCancellation();
            const auto state = co_await cancellationState;
            noticed = !isCancelled(state);
        });
        co_await until([&] { return clock.waiting() == 1; });
        task.cancel();
        co_await until([&] { return clock.nextDue() == Duration{1s}; });
        clock.advance(1s);
        co_await task.finished();
    });
    EXPECT_TRUE(finished);
    EXPECT_TRUE(noticed);
}

TEST(Cancellation, IsNotedWhileNothingMayInterrupt) {
    Runtime runtime;
    ManualClock clock;
    std::string seen;
    runtime.run([&]() -> Async<void> {
        const auto wait = [&]() -> Async<void> { co_await clock.wait(1s); };
        Task task(runtime.executors().main, [&]() -> Async<void> {
            for (const char* ends : {"1", "2"}) {
                const bool wasAsked = co_await uninterrupted(wait);
                seen += wasAsked ? "asked" : ends;
            }
            co_await wait();
            seen += "too far";
        });
        for (int round = 0; round < 2; ++round) {
            co_await until([&] { return clock.waiting() == 1; });
            if (round == 1) task.cancel();
            co_await until([&] { return clock.waiting() == 1; });
            clock.advance(1s);
        }
        co_await task.finished();
        // Otherwise it ends at the next wait as before.
        Task other(runtime.executors().main, [&]() -> Async<void> {
            const auto nothing = []() -> Async<void> { co_return; };
            co_await uninterrupted(nothing);
            co_await wait();
        });
        co_await until([&] { return clock.waiting() == 1; });
        other.cancel();
        co_await other.finished();
    });
    EXPECT_EQ(seen, "1asked");
}

TEST(Runtime, EndsEveryTaskBeforeItGoes) {
    constexpr int rounds = 20;
    ManualClock clock;
    std::atomic<int> ended = 0;
    for (int round = 0; round < rounds; ++round) {
        Runtime runtime;
        const Executors executors = runtime.executors();
        // Each waits on another executor than its own.
        const auto deep = [executors, &clock, &ended]() -> Async<void> {
            try {
                co_await runOn(executors.background, [&executors, &clock]() -> Async<void> {
                    co_await runOn(executors.io, [&clock]() -> Async<void> { co_await clock.wait(1h); });
                });
            } catch (...) {
                ++ended;
                throw;
            }
        };
        const Task onMain(executors.main, deep), onIO(executors.io, deep), onBackground(executors.background, deep);
        if (round % 2 == 0) runtime.run([&]() -> Async<void> { co_await until([&] { return clock.waiting() == 3; }); });
        // One that is about its last work, and begins another then.
        auto stubborn = std::make_shared<Task>();
        *stubborn = Task(executors.io, [stubborn, executors, deep]() -> Async<void> {
            co_await ignoreCancellation();
            SystemClock real;
            co_await real.wait(5ms);
            *stubborn = Task(executors.main, deep);
        });
    }
    EXPECT_EQ(clock.waiting(), 0U);
    EXPECT_GE(ended, rounds / 2 * 3);
}

TEST(Clocks, ManualTimeWakesTheEarliestFirst) {
    Runtime runtime;
    ManualClock clock;
    std::vector<int> woken;
    const Date start = clock.now();
    runtime.run([&]() -> Async<void> {
        std::vector<Task> tasks;
        for (const int seconds : {30, 10, 20}) {
            tasks.emplace_back(runtime.executors().main, [&clock, &woken, seconds]() -> Async<void> {
                co_await clock.wait(std::chrono::seconds{seconds});
                woken.push_back(seconds);
            });
        }
        co_await until([&] { return clock.waiting() == 3; });
        EXPECT_EQ(clock.nextDue(), Duration{10s});
        clock.advance(25s);
        co_await until([&] { return woken.size() == 2; });
        clock.advance(5s);
        for (auto& task : tasks) co_await task.finished();
    });
    EXPECT_EQ(woken, (std::vector{10, 20, 30}));
    EXPECT_EQ(clock.now() - start, 30s);
}

TEST(Within, TellsResultsFailuresAndTimeOutsApart) {
    Runtime runtime;
    ManualClock clock;
    runtime.run([&]() -> Async<void> {
        const auto quick = co_await within(clock, 1s, []() -> Async<int> { co_return 7; });
        EXPECT_EQ(quick, 7);

        bool ended = false;
        Task mover(runtime.executors().main, [&]() -> Async<void> {
            co_await until([&] { return clock.waiting() == 2; });
            clock.advance(1s);
        });
        const auto slow = co_await within(clock, 1s, [&]() -> Async<int> {
            try {
                co_await clock.wait(1h);
            } catch (const Cancelled&) {
                ended = true;
                throw;
            }
            co_return 1;
        });
        EXPECT_EQ(slow, std::unexpected(TimedOut{}));
        EXPECT_TRUE(ended);

        bool threw = false;
        try {
            co_await within(clock, 1s, []() -> Async<void> {
                throw std::runtime_error("broken");
                co_return;
            });
        } catch (const std::runtime_error&) {
            threw = true;
        }
        EXPECT_TRUE(threw);
        EXPECT_EQ(clock.waiting(), 0U);
    });
}

TEST(Observing, AnEqualValueWakesNobody) {
    Observed<int> value(1);
    int calls = 0;
    auto connection = value.onChange([&] { ++calls; });
    value = 1;
    EXPECT_EQ(calls, 0);
    value = 2;
    value.update([](int& number) { number += 1; });
    value.update([](int&) {});
    EXPECT_EQ(calls, 2);
    EXPECT_EQ(*value, 3);
    connection.disconnect();
    value = 4;
    EXPECT_EQ(calls, 2);
}

TEST(Errors, CancellationIsNoFailureAndSentencesReachThePerson) {
    EXPECT_TRUE(isCancellation(std::make_exception_ptr(Cancelled())));
    EXPECT_FALSE(isCancellation(std::make_exception_ptr(UserError("No."))));
    EXPECT_EQ(sentenceOf(std::make_exception_ptr(UserError("The disk is full."))), "The disk is full.");
    EXPECT_EQ(sentenceOf(std::make_exception_ptr(std::runtime_error("x"))), "Something went wrong: x");
}

}}
