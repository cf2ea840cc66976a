#include "terminal/AttachmentFiles.h"

#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

namespace velmo { namespace {

namespace fs = std::filesystem;

MIMEAttachment named(std::string filename, Bytes data = "data") {
    MIMEAttachment attachment;
    attachment.filename = std::move(filename);
    attachment.data = std::move(data);
    return attachment;
}

TEST(SafeFileName, IsOneHarmlessComponent) {
    const std::pair<std::string, std::string> cases[]{
        {"report.pdf", "report.pdf"},
        {"../../etc/passwd", "_.._etc_passwd"},
        {"/etc/passwd", "_etc_passwd"},
        {"..", "attachment"},
        {"", "attachment"},
        {" . ", "attachment"},
        {".bashrc", "bashrc"},
        {"a\\b\nc\x1b[2J.txt", "a_b c[2J.txt"},
        {"\u202Efdp.exe", "fdp.exe"},
        {"日本.doc", "日本.doc"},
    };
    for (const auto& [from, to] : cases) EXPECT_EQ(safeFileName(from), to) << from;
    const auto nameWithNUL = safeFileName(std::string("a\0b", 3));
    EXPECT_EQ(nameWithNUL, "ab");
    const auto endless = safeFileName(std::string(5000, 'x') + ".tar");
    EXPECT_EQ(endless.size(), 200U);
    EXPECT_TRUE(endless.ends_with("x.tar"));
    EXPECT_LE(safeFileName(std::string(300, '.') + std::string(300, 'y')).size(), 200U);
}

TEST(Saving, MakesNewFilesOnlyAndStaysInItsDirectory) {
    const test::TemporaryDirectory place;
    const fs::path directory = place / "out";
    fs::create_directory(directory);
    test::writeFile(directory / "old.txt", "old");
    test::writeFile(place / "victim", "untouched");
    fs::create_symlink(place / "victim", directory / "link.txt");
    fs::create_symlink(place / "nowhere", directory / "dangling");

    const auto saved = saveAttachments({named("old.txt", "new"), named("old.txt", "newer"), named("link.txt"),
                                        named("dangling"), named("../victim"), named("../victim")},
                                       directory);
    const std::vector<fs::path> expected{directory / "old (2).txt",  directory / "old (3).txt",
                                         directory / "link (2).txt", directory / "dangling (2)",
                                         directory / "_victim",      directory / "_victim (2)"};
    EXPECT_EQ(saved, expected);
    EXPECT_EQ(test::contentsOf(directory / "old.txt"), "old");
    EXPECT_EQ(test::contentsOf(directory / "old (3).txt"), "newer");
    EXPECT_EQ(test::contentsOf(place / "victim"), "untouched");
    EXPECT_FALSE(fs::exists(place / "nowhere"));
}

TEST(Saving, TellsWhereItCouldNotWrite) {
    const test::TemporaryDirectory place;
    test::writeFile(place / "file", "");
    EXPECT_THROW(saveAttachments({named("a")}, place / "file"), AttachmentError);
    EXPECT_THROW(saveAttachments({named("a")}, place / "missing" / "deeper"), AttachmentError);
    EXPECT_EQ(saveAttachments({named("a")}, place / "made").size(), 1U);
}

}}
