#include "store/FolderTree.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace velmo { namespace {

using testing::ElementsAre;
using testing::IsEmpty;

MailboxRecord mailbox(const char* path, MailboxRole role = MailboxRole::other, const char* delimiter = "/") {
    MailboxRecord record;
    record.path = path;
    record.roleRaw = rawText(role);
    if (delimiter != nullptr) record.delimiter = delimiter;
    return record;
}

std::vector<std::string> pathsOf(const std::vector<FolderTree::Node>& nodes) {
    std::vector<std::string> paths;
    for (const auto& node : nodes) paths.push_back(node.mailbox.path + (node.hasChildren ? " +" : ""));
    return paths;
}

TEST(FolderTree, FoldersStandBehindTheirParents) {
    const auto tree = FolderTree::of(
        {mailbox("Work/b"), mailbox("Work"), mailbox("Work-old"), mailbox("Spam", MailboxRole::junk),
         mailbox("INBOX", MailboxRole::inbox), mailbox("Work/a/x"), mailbox("Workshop"), mailbox("INBOX/Kept"),
         mailbox("Work/a"), mailbox("No/Parent"), mailbox("a/b", MailboxRole::archive, nullptr)});
    EXPECT_THAT(pathsOf(tree.special), ElementsAre("INBOX +", "a/b", "Spam"));
    EXPECT_THAT(pathsOf(tree.folders), ElementsAre("INBOX/Kept", "No/Parent", "Work +", "Work/a +", "Work/a/x",
                                                   "Work/b", "Work-old", "Workshop"));
    EXPECT_THAT(tree.special[1].components, ElementsAre("a/b")) << "without a delimiter";
}

TEST(FolderTree, FoldingIsKeptForSectionsOnly) {
    const auto tree = FolderTree::of(
        {mailbox("a"), mailbox("a/b"), mailbox("a/b/c"), mailbox("a/d"), mailbox("ab"), mailbox("ab/e")});
    MemorySettings settings;
    FolderFolding folding(settings);
    EXPECT_THAT(pathsOf(tree.visibleFolders(folding)), ElementsAre("a +", "ab +"));
    folding.set("a/b", FolderFolding::State::open);
    EXPECT_THAT(pathsOf(tree.visibleFolders(folding)), ElementsAre("a +", "ab +")) << "its parent is closed";
    folding.set("a", FolderFolding::State::open);
    EXPECT_THAT(pathsOf(tree.visibleFolders(folding)), ElementsAre("a +", "a/b +", "a/b/c", "a/d", "ab +"));
    folding.setAll(tree, "a", FolderFolding::State::closed);
    EXPECT_THAT(*folding.expanded, IsEmpty());
    folding.setAll(tree, "a", FolderFolding::State::open);
    EXPECT_THAT(*folding.expanded, ElementsAre("a", "a/b"));
    const auto inInbox = FolderTree::of(
        {mailbox("INBOX", MailboxRole::inbox), mailbox("INBOX/a"), mailbox("INBOX/a/b"), mailbox("c"), mailbox("c/d")});
    folding.setAll(inInbox, "INBOX", FolderFolding::State::open);
    EXPECT_THAT(*folding.expanded, ElementsAre("INBOX", "INBOX/a", "a", "a/b"));
    folding.setSection("Folders", FolderFolding::State::closed);
    EXPECT_THAT(tree.visibleFolders(folding), IsEmpty());

    FolderFolding later(settings);
    EXPECT_THAT(*later.collapsedSections, ElementsAre("Folders"));
    EXPECT_THAT(*later.expanded, IsEmpty());
    later.setSection("Folders", FolderFolding::State::open);
    EXPECT_EQ(settings.texts("collapsedFolderSection"), std::vector<std::string>());
}

TEST(FolderTree, AServersOddPathsAreRead) {
    std::string deep = "x";
    for (int i = 0; i < 100'000; ++i) deep += "/x";
    const auto tree = FolderTree::of({mailbox(deep.c_str()), mailbox("x"), mailbox("/"), mailbox(""), mailbox("//")});
    EXPECT_EQ(tree.folders.size(), 5U);
    EXPECT_EQ(tree.folders.back().components.size(), 100'001U);
    EXPECT_TRUE(FolderTree::of({}).folders.empty());
}

}}
