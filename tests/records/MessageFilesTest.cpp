#include "records/MessageFiles.h"

#include "platform/FileError.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

namespace velmo { namespace {

class MessageFilesTest : public testing::Test {
  protected:
    BodyKey key(std::string path, std::int64_t uid = 7, std::int64_t uidValidity = 3) const {
        return {account_, std::move(path), uidValidity, uid};
    }

    test::TemporaryDirectory directory_;
    std::filesystem::path root_ = directory_ / "Messages";
    MessageFiles files_{root_};
    const UUID account_ = UUID::random();
};

TEST_F(MessageFilesTest, EveryMailboxIsOneDirectory) {
    EXPECT_EQ(files_.fileOf(key("INBOX")), root_ / account_.text() / "SU5CT1g=-3" / "7.eml");
    EXPECT_EQ(files_.fileOf(key("~?>>")).parent_path().filename(), "fj8-Pg==-3");
    EXPECT_EQ(files_
                  .fileOf(key("?"
                              "?"
                              "?"
                              "?"
                              "?"
                              "?"))
                  .parent_path()
                  .filename(),
              "Pz8_Pz8_-3");
    const std::string longPath(4000, 'x');
    for (const auto& path : {std::string("a/b/../c"), std::string("Entwürfe"), std::string("\0", 1), std::string(),
                             longPath, longPath + "y"}) {
        files_.saveBody("body of " + path, key(path));
        EXPECT_EQ(files_.loadBody(key(path)), "body of " + path);
        EXPECT_EQ(files_.fileOf(key(path)).parent_path().parent_path(), root_ / account_.text());
    }
}

TEST_F(MessageFilesTest, BodiesAreSavedReplacedHandedOnAndDeleted) {
    EXPECT_EQ(files_.loadBody(key("INBOX")), std::nullopt);
    EXPECT_EQ(files_.bodyFileSize(key("INBOX")), 0);
    EXPECT_FALSE(files_.adopt(key("INBOX"), 0, key("Sent")));
    EXPECT_EQ(files_.loadBody(key("Sent")), std::nullopt);
    EXPECT_EQ(files_.storedBytes(), 0);

    files_.saveBody("a long first body", key("INBOX"));
    files_.saveBody("second", key("INBOX"));
    files_.saveBody("target", key("Sent"));
    EXPECT_TRUE(files_.adopt(key("INBOX"), 0, key("Sent")));
    EXPECT_TRUE(files_.adopt(key("INBOX"), 0, key("INBOX")));
    EXPECT_EQ(files_.loadBody(key("Sent")), "second");
    EXPECT_EQ(files_.bodyFileSize(key("INBOX")), 6);
    EXPECT_GT(files_.storedBytes(), 0);
    struct stat status {};
    ASSERT_EQ(::stat(files_.fileOf(key("INBOX")).c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600U);
    ASSERT_EQ(::stat(files_.fileOf(key("INBOX")).parent_path().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0700U);

    files_.deleteBody(key("INBOX"));
    files_.deleteBody(key("INBOX"));
    EXPECT_EQ(files_.loadBody(key("INBOX")), std::nullopt);
}

TEST_F(MessageFilesTest, StagedBodiesBecomeFilesTogetherOrGoAgain) {
    const auto filesOf = [this] {
        std::size_t count = 0;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(root_)) count += entry.is_regular_file();
        return count;
    };
    files_.saveBody("old", key("INBOX", 1));
    std::vector<StagedFile> staged;
    for (const int uid : {1, 2}) staged.push_back(files_.stageBody("body " + std::to_string(uid), key("INBOX", uid)));
    staged.push_back(files_.stageBody("", key("Sent", 1)));
    staged.push_back(files_.stageBody("dropped", key("Sent", 2)));
    EXPECT_EQ(files_.loadBody(key("INBOX", 1)), "old");
    EXPECT_FALSE(files_.loadBody(key("INBOX", 2)));
    staged.pop_back();
    files_.keep(std::move(staged));
    EXPECT_EQ(files_.loadBody(key("INBOX", 1)), "body 1");
    EXPECT_EQ(files_.loadBody(key("INBOX", 2)), "body 2");
    EXPECT_EQ(files_.loadBody(key("Sent", 1)), "");
    EXPECT_EQ(filesOf(), 3U);
    struct stat status {};
    ASSERT_EQ(::stat(files_.fileOf(key("Sent", 1)).c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600U);
    files_.keep({});

    // Where a file can't be put, nothing is left lying about.
    std::filesystem::create_directories(files_.fileOf(key("INBOX", 9)));
    staged.clear();
    staged.push_back(files_.stageBody("x", key("INBOX", 9)));
    EXPECT_THROW(files_.keep(std::move(staged)), FileError);
    EXPECT_EQ(filesOf(), 3U);

    // What a crash left goes at the next start, and nothing else.
    test::writeFile(root_ / account_.text() / "incoming" / ".3.eml.abcdef", "half a bo");
    files_.dropStaged(account_);
    EXPECT_EQ(filesOf(), 3U);
}

TEST_F(MessageFilesTest, DeletingStopsAtItsBounds) {
    // "INBOX" and a mailbox whose encoded name goes on where that of "INBOX" ends.
    for (const char* path : {"INBOX", "INBOX2", "INB"}) {
        files_.saveBody("x", key(path, 1, 3));
        files_.saveBody("x", key(path, 1, 44));
    }
    files_.deleteBodies({account_, "INBOX"}, 3);
    EXPECT_FALSE(files_.loadBody(key("INBOX", 1, 3)));
    EXPECT_TRUE(files_.loadBody(key("INBOX", 1, 44)));
    files_.deleteMailbox({account_, "INBOX"});
    EXPECT_FALSE(files_.loadBody(key("INBOX", 1, 44)));
    EXPECT_TRUE(files_.loadBody(key("INBOX2", 1, 44)) && files_.loadBody(key("INB", 1, 3)));
    files_.deleteAccount(UUID::random());
    EXPECT_TRUE(files_.loadBody(key("INB", 1, 3)));
    files_.deleteAccount(account_);
    EXPECT_FALSE(std::filesystem::exists(root_ / account_.text()));
}

TEST_F(MessageFilesTest, AnOlderPlaceIsMovedOver) {
    const auto former = directory_ / "cache" / "Messages";
    MessageFiles(former).saveBody("kept", key("INBOX"));
    const auto root = directory_ / "new" / "deep" / "Messages";
    const MessageFiles moved(root, former);
    EXPECT_EQ(moved.loadBody(key("INBOX")), "kept");
    EXPECT_FALSE(std::filesystem::exists(former));

    // What stands there already is not touched.
    MessageFiles(former).saveBody("stale", key("INBOX"));
    EXPECT_EQ(MessageFiles(root, former).loadBody(key("INBOX")), "kept");
}

TEST_F(MessageFilesTest, AFailedSaveIsTold) {
    test::writeFile(root_, "a file where the directory should be");
    EXPECT_THROW(files_.saveBody("x", key("INBOX")), FileError);
    EXPECT_EQ(files_.loadBody(key("INBOX")), std::nullopt);
}

}}
