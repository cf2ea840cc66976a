#include "store/Deaths.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <gtest/gtest.h>
#include <limits>
#include <sys/wait.h>
#include <unistd.h>

namespace velmo::test {

namespace {

constexpr Deed allDeeds[]{Deed::commit, Deed::rename, Deed::removal, Deed::fileWrite, Deed::socketWrite};

/// Works in a process of its own, which dies at this deed; true when it came to its end.
bool workAndDie(Deed deed, long number, const std::function<void()>& work) {
    const auto child = ::fork();
    if (child == 0) {
        dieAt(deed, number);
        try {
            work();
        } catch (const std::exception& error) {
            std::fprintf(stderr, "%s\n", error.what());
            ::_exit(1);
        }
        ::_exit(testing::Test::HasFailure() ? 1 : 0);
    }
    int status = 0;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFSIGNALED(status) ? WTERMSIG(status) == SIGKILL : WEXITSTATUS(status) == 0) << status;
    return WIFEXITED(status);
}

/// What an undisturbed process does; it tells by a pipe.
std::map<Deed, long> countsOf(const std::function<void()>& work) {
    int pipe[2];
    EXPECT_EQ(::pipe(pipe), 0);
    const auto telling = [&] {
        work();
        for (const auto deed : allDeeds) {
            const long count = deedsDone(deed);
            if (::write(pipe[1], &count, sizeof count) != sizeof count) ::_exit(2);
        }
    };
    EXPECT_TRUE(workAndDie(Deed::commit, std::numeric_limits<long>::max(), telling));
    std::map<Deed, long> counts;
    for (const auto deed : allDeeds) EXPECT_EQ(::read(pipe[0], &counts[deed], sizeof(long)), ssize_t{sizeof(long)});
    ::close(pipe[0]);
    ::close(pipe[1]);
    return counts;
}

}

std::map<Deed, long> dieEverywhere(const std::function<void()>& work, const std::function<void()>& before,
                                   const std::function<void()>& after, std::map<Deed, long> samples) {
    before();
    std::map<Deed, long> counts = countsOf(work), deaths;
    for (const auto deed : allDeeds) deaths[deed] = 0;
    for (const auto deed : allDeeds) {
        const long step = samples.contains(deed) ? std::max(1L, counts[deed] / samples[deed]) : 1;
        for (long number = 1;; number += step) {
            SCOPED_TRACE(testing::Message() << "deed " << int(deed) << " number " << number);
            before();
            if (workAndDie(deed, number, work)) break;
            ++deaths[deed];
            after();
            if (testing::Test::HasFailure()) return deaths;
        }
    }
    return deaths;
}

}
