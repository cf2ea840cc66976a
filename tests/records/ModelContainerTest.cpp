#include "records/ModelContainer.h"

#include "records/ModelContext.h"
#include "records/Schema.h"
#include "support/TemporaryDirectory.h"

#include <boost/asio/io_context.hpp>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

namespace velmo { namespace {

class ModelContainerTest : public testing::Test {
  protected:
    std::shared_ptr<ModelContainer> open() { return ModelContainer::open(file_, main_.get_executor()); }

    std::optional<ModelStoreError::Kind> refusal() {
        try {
            open();
        } catch (const ModelStoreError& error) {
            return error.kind();
        }
        return std::nullopt;
    }

    test::TemporaryDirectory directory_;
    std::filesystem::path file_ = directory_ / "store" / "Mail.sqlite";
    boost::asio::io_context main_;
    const UUID account_ = UUID::random();
};

MailboxRecord mailbox(const UUID& account, std::string path) {
    MailboxRecord record;
    record.accountID = account;
    record.name = path;
    record.path = std::move(path);
    record.roleRaw = "other";
    return record;
}

TEST_F(ModelContainerTest, OnlyOneProcessHasTheStoreOpen) {
    auto container = open();
    container->makeContext()->mailboxes.store(mailbox(account_, "INBOX"));
    EXPECT_EQ(refusal(), ModelStoreError::Kind::inUse);
    const auto child = ::fork();
    if (child == 0) ::_exit(refusal() == ModelStoreError::Kind::inUse ? 0 : 1);
    int status = 1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);

    container.reset();
    container = open();
    EXPECT_EQ(container->makeContext()->mailboxes.of(account_).size(), 1U);
}

TEST_F(ModelContainerTest, AStoreOfALaterProgramIsLeftAlone) {
    open()->makeContext()->mailboxes.store(mailbox(account_, "INBOX"));
    sqlite::Database(file_).setUserVersion(ModelContainer::schemaVersion() + 1);
    EXPECT_EQ(refusal(), ModelStoreError::Kind::tooNew);
    sqlite::Database(file_).setUserVersion(ModelContainer::schemaVersion());
    EXPECT_EQ(open()->makeContext()->mailboxes.of(account_).size(), 1U);
}

TEST_F(ModelContainerTest, AMigrationThatFailsLeavesTheStoreAsItWas) {
    std::filesystem::create_directories(file_.parent_path());
    sqlite::Database database(file_);
    // In the way of the first step.
    database.execute("CREATE TABLE labels (x)");
    EXPECT_THROW(schema::migrate(database), sqlite::SQLiteError);
    EXPECT_EQ(database.userVersion(), 0);
    database.execute("DROP TABLE labels");
    schema::migrate(database);
    EXPECT_EQ(database.userVersion(), ModelContainer::schemaVersion());
}

TEST_F(ModelContainerTest, ATemporaryStoreIsSharedAndGoesWithItsContainer) {
    auto container = ModelContainer::temporary(main_.get_executor());
    const auto file = container->file();
    auto writer = container->makeContext();
    auto reader = container->makeContext();
    container.reset();
    writer->mailboxes.store(mailbox(account_, "INBOX"));
    EXPECT_TRUE(reader->mailboxes.find({account_, "INBOX"}));
    writer.reset();
    reader.reset();
    EXPECT_FALSE(std::filesystem::exists(file.parent_path()));
}

TEST_F(ModelContainerTest, ObserversHearOfCommitsOnce) {
    auto container = ModelContainer::temporary(main_.get_executor());
    auto context = container->makeContext();
    std::vector<ModelChanges> heard;
    const auto connection = container->onChange([&](const ModelChanges& changes) { heard.push_back(changes); });
    const auto run = [&] {
        main_.restart();
        main_.poll();
    };

    context->transaction([&] {
        context->mailboxes.store(mailbox(account_, "a"));
        context->mailboxes.store(mailbox(account_, "b"));
        run();
        EXPECT_TRUE(heard.empty());
    });
    context->labels.store({"mine", "Mine", 1, false, 9});
    run();
    ASSERT_EQ(heard.size(), 1U);
    EXPECT_TRUE(heard[0].labels);
    EXPECT_EQ(heard[0].mailboxLists, std::set{account_});

    // What was rolled back, what differs in nothing, and what only the sync needs: no news.
    EXPECT_THROW(context->transaction([&] {
        context->mailboxes.store(mailbox(account_, "c"));
        throw std::runtime_error("no");
    }),
                 std::runtime_error);
    auto same = mailbox(account_, "a");
    EXPECT_FALSE(context->mailboxes.store(same));
    same.lastSynced = dateFromUnixMilliseconds(1);
    same.uidNext = 7;
    EXPECT_TRUE(context->mailboxes.store(same));
    run();
    EXPECT_EQ(heard.size(), 1U);

    context->mailboxes.adjustUnreadCount({account_, "a"}, 2);
    context->mailboxes.adjustUnreadCount({account_, "a"}, -5);
    run();
    EXPECT_EQ(heard.size(), 2U);
    EXPECT_EQ(context->mailboxes.find({account_, "a"})->unreadCount, 0);
}

}}
