#include "records/BodyIndex.h"

#include "support/TemporaryDirectory.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <sys/stat.h>

namespace velmo { namespace {

class BodyIndexTest : public testing::Test {
  protected:
    std::vector<std::string> found(std::string_view words) {
        auto ids = index_->search(words);
        std::ranges::sort(ids);
        return ids;
    }

    test::TemporaryDirectory directory_;
    std::filesystem::path file_ = directory_ / "data" / "Search.sqlite";
    std::unique_ptr<BodyIndex> index_ = std::make_unique<BodyIndex>(file_);
    const UUID account_ = UUID::random();
    const UUID other_ = UUID::random();
};

using IDs = std::vector<std::string>;

TEST_F(BodyIndexTest, FindsWordsAsAPersonWritesThem) {
    index_->add({{"plain", "one two three four five six seven eight nine"},
                 {"accents", "Das Café in der Straße, crème brûlée"},
                 {"scripts", "Здравствуйте हिन्दी 東京 42nd"},
                 {"syntax", "foo bar baz near"}},
                account_);
    const struct {
        std::string_view words;
        IDs found;
    } cases[]{
        {"foo-bar baz", {"syntax"}},
        {"foo qux", {}},
        {"THR fou", {"plain"}},
        {"hree", {}},
        {"cafe BRULEE", {"accents"}},
        {"cafe\xCC\x81", {"accents"}},
        {"strasse", {}},
        {"здрав", {"scripts"}},
        {"हिन्दी", {"scripts"}},
        {"東京 42", {"scripts"}},
        {"one two three four five six seven eight absent", {"plain"}},
        {"one two three four five six seven absent", {}},
        {"foo NOT bar", {}},
        {"\"foo\" (bar) baz* NEAR(near, 2)", {}},
        {"body:foo", {}},
        {"foo\" OR \"three", {}},
        {"foo'; DROP TABLE docs; --", {}},
        {"foo\xFF\xC3", {"syntax"}},
        {std::string_view("foo\0bar", 7), {"syntax"}},
        {"", {}},
        {" \"*-()^:. \xE2\x80\x94 ", {}},
    };
    for (const auto& [words, expected] : cases) EXPECT_EQ(found(words), expected) << words;
}

TEST_F(BodyIndexTest, KeepsTheFirstBodyUntilItsAccountGoes) {
    EXPECT_TRUE(index_->add("<1@x>", account_, "first"));
    EXPECT_EQ(index_->version(), 1);
    EXPECT_FALSE(index_->add("<1@x>", other_, "second"));
    EXPECT_EQ(index_->add({{"<1@x>", "third"}}, account_), 0U);
    EXPECT_EQ(index_->version(), 1);
    EXPECT_EQ(found("first"), IDs{"<1@x>"});
    EXPECT_EQ(found("second"), IDs{});

    EXPECT_EQ(index_->add({{"<2@x>", "first of two"}, {"<2@x>", "twice"}, {"<3@x>", ""}}, other_), 2U);
    EXPECT_EQ(found("first"), (IDs{"<1@x>", "<2@x>"})) << "the same search again";
    EXPECT_EQ(index_->allMessageIDs(), (std::set<std::string>{"<1@x>", "<2@x>", "<3@x>"}));

    std::vector<BodyIndex::Document> many;
    for (int i = 0; i < 120; ++i) many.push_back({"<many" + std::to_string(i) + "@x>", "many"});
    index_->add(many, account_);
    const auto before = index_->version();
    index_->removeAccount(account_);
    EXPECT_EQ(found("many"), IDs{});
    EXPECT_EQ(index_->allMessageIDs(), (std::set<std::string>{"<2@x>", "<3@x>"}));
    EXPECT_GT(index_->version(), before);
    EXPECT_EQ(found("first"), IDs{"<2@x>"});
    EXPECT_TRUE(index_->add("<1@x>", other_, "anew"));
    EXPECT_EQ(found("anew"), IDs{"<1@x>"});
}

TEST_F(BodyIndexTest, AnAnswerIsBounded) {
    std::vector<BodyIndex::Document> many;
    for (int i = 0; i < 2'001; ++i) many.push_back({std::to_string(i), "same"});
    EXPECT_EQ(index_->add(many, account_), many.size());
    EXPECT_EQ(index_->search("same").size(), 2'000U);
}

TEST_F(BodyIndexTest, IsThereAtTheNextStart) {
    index_->add("<1@x>", account_, "kept");
    EXPECT_GT(index_->fileSize(), 0);
    index_.reset();
    struct stat status {};
    ASSERT_EQ(::stat(file_.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600U);
    index_ = std::make_unique<BodyIndex>(file_);
    EXPECT_EQ(found("kept"), IDs{"<1@x>"});
}

/// Every operation is quiet on an index that can't be.
void expectEmpty(BodyIndex& index) {
    const UUID account = UUID::random();
    EXPECT_FALSE(index.add("<1@x>", account, "text"));
    EXPECT_EQ(index.add({{"<2@x>", "text"}}, account), 0U);
    EXPECT_TRUE(index.search("text").empty());
    EXPECT_TRUE(index.allMessageIDs().empty());
    index.removeAccount(account);
    EXPECT_EQ(index.version(), 0);
}

TEST_F(BodyIndexTest, WithoutADatabaseThereAreNoAnswers) {
    test::writeFile(directory_ / "file", "in the way");
    BodyIndex noDirectory(directory_ / "file" / "Search.sqlite");
    expectEmpty(noDirectory);
    test::writeFile(directory_ / "garbage.sqlite", std::string(5'000, 'x'));
    BodyIndex damaged(directory_ / "garbage.sqlite");
    expectEmpty(damaged);
}

TEST_F(BodyIndexTest, InMemoryItTouchesNoFile) {
    BodyIndex memory({});
    EXPECT_TRUE(memory.add("<1@x>", account_, "text"));
    EXPECT_EQ(memory.search("text"), IDs{"<1@x>"});
    EXPECT_EQ(memory.fileSize(), 0);
    EXPECT_FALSE(std::filesystem::exists(":memory:"));
}

}}
