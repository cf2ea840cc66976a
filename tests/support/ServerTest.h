#pragma once

#include "support/MailServers.h"

#include <gtest/gtest.h>
#include <unistd.h>

namespace velmo::test {

/// Base of a test, `Base`, that needs real mail servers. Where they must run, as root, they count as a failure when
/// they can't; another user is told how to run the test.
template <class Base = testing::Test>
class WithServers : public Base {
  protected:
    /// The test's own preparation; not called without servers.
    virtual void prepare() {}

  private:
    void SetUp() final {
        const auto obstacle = MailServers::obstacle();
        if (!obstacle) return prepare();
        if (geteuid() == 0) FAIL() << *obstacle;
        GTEST_SKIP() << *obstacle;
    }
};

}
