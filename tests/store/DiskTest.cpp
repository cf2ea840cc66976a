// A disk that is full or read-only while a pass and a prefetch write: the person is told, nothing is lost, and when
// there is room again everything completes.

#include "store/MailView.h"
#include "store/SystemFaults.h"
#include "support/ServerTest.h"

#include <cerrno>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace velmo::test { namespace {

constexpr int messageCount = 8;

/// The parameter is the error of the disk.
class Disk : public WithServers<testing::TestWithParam<int>> {
  protected:
    void prepare() override {
        servers_.emplace();
        servers_->fill(messageCount);
        Runtime runtime;
        SystemClock clock;
        const StoreHome home(*servers_);
        const auto client = anotherClient(runtime, clock, home);
        runtime.run([&] { return client->connect(); });
        mail_ = runtime.run([&] { return mailOnServer(client); });
        sources_ = runtime.run([&] { return sourcesOnServer(client); });
        runtime.run([&] { return client->close(); });
    }

    void expectComplete(OpenStore& store, const StoreHome& home) const {
        EXPECT_EQ(store.pass(), SyncStatus::idle());
        store.prefetch();
        EXPECT_EQ(store.mail().prefetch().bodiesHeld(store.account.id), messageCount);
        EXPECT_EQ(mailInStore(store), mail_);
        EXPECT_EQ(damageIn(store, home, sources_), "");
    }

    std::optional<MailServers> servers_;
    std::string mail_;
    Sources sources_;
};

TEST_P(Disk, ThatRefusesLosesNothing) {
    int refused = 0;
    for (const std::int64_t room : {0, 3'000, 20'000, 70'000, 110'000, 150'000, 200'000}) {
        SCOPED_TRACE(testing::Message() << "room for " << room << " bytes");
        const StoreHome home(*servers_);
        OpenStore store(home);
        {
            const RefusingDisk disk(home.store(), GetParam(), room);
            const auto status = store.pass();
            if (disk.refusals() > 0) {
                EXPECT_EQ(status.kind, SyncStatus::Kind::failed);
                EXPECT_THAT(status.text, testing::AnyOf(testing::HasSubstr("disk"), testing::HasSubstr("data file")));
            }
            try {
                store.prefetch();
            } catch (const UserError& error) {
                EXPECT_THAT(error.sentence(), testing::AnyOf(testing::HasSubstr("disk"), testing::HasSubstr("file")));
            }
            if (disk.refusals() > 0) ++refused;
        }
        expectComplete(store, home);
    }
    EXPECT_GE(refused, 3);
}

TEST_P(Disk, ThatRefusesTheIndexAloneLosesNoText) {
    const StoreHome home(*servers_);
    OpenStore store(home);
    EXPECT_EQ(store.pass(), SyncStatus::idle());
    {
        const RefusingDisk disk(home.bodyIndex(), GetParam(), 0);
        store.prefetch();
        EXPECT_GT(disk.refusals(), 0);
    }
    expectComplete(store, home);
}

INSTANTIATE_TEST_SUITE_P(Errors, Disk, testing::Values(ENOSPC, EROFS));

}}
