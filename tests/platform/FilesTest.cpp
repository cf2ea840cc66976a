#include "platform/AtomicFile.h"
#include "platform/Directories.h"
#include "platform/FileError.h"
#include "support/EnvironmentGuard.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

namespace velmo { namespace {

using std::filesystem::path;
using test::EnvironmentGuard;
using test::TemporaryDirectory;

unsigned modeOf(const path& file) {
    struct stat status {};
    if (stat(file.c_str(), &status) != 0) return 0;
    return status.st_mode & 07777U;
}

TEST(Directories, FollowTheBaseDirectoryRules) {
    const EnvironmentGuard portable("VELMO_HOME", "");
    const EnvironmentGuard home("HOME", "/home/ada");
    const EnvironmentGuard config("XDG_CONFIG_HOME", "/etc/elsewhere");
    const EnvironmentGuard data("XDG_DATA_HOME", "relative/is/ignored");
    const EnvironmentGuard cache("XDG_CACHE_HOME", "");
    const EnvironmentGuard state("XDG_STATE_HOME", std::nullopt);
    const EnvironmentGuard run("XDG_RUNTIME_DIR", std::nullopt);
    const auto directories = Directories::fromEnvironment();
    EXPECT_EQ(directories.config, "/etc/elsewhere/velmo-mail");
    EXPECT_EQ(directories.data, "/home/ada/.local/share/velmo-mail");
    EXPECT_EQ(directories.cache, "/home/ada/.cache/velmo-mail");
    EXPECT_EQ(directories.state, "/home/ada/.local/state/velmo-mail");
    EXPECT_EQ(directories.run, "/home/ada/.cache/velmo-mail/run");
    EXPECT_EQ(directories.installation, Directories::Installation::user);
}

TEST(Directories, VelmoHomeHoldsEverythingInPrivateDirectories) {
    const TemporaryDirectory temporary;
    const EnvironmentGuard portable("VELMO_HOME", (temporary / "deep/home/").string());
    const mode_t before = umask(0);
    const auto directories = Directories::fromEnvironment();
    directories.make();
    umask(before);
    EXPECT_EQ(directories.installation, Directories::Installation::portable);
    for (const char* name : {"config", "data", "cache", "run", "state"})
        EXPECT_EQ(modeOf(temporary / "deep/home" / name), 0700U) << name;
    EXPECT_EQ(modeOf(temporary / "deep"), 0700U);
}

TEST(Directories, ExistingDirectoriesAreClosedAndOthersRefused) {
    const TemporaryDirectory temporary;
    const path open = temporary / "open";
    std::filesystem::create_directory(open);
    std::filesystem::permissions(open, std::filesystem::perms(0755));
    makePrivateDirectory(open);
    EXPECT_EQ(modeOf(open), 0700U);

    test::writeFile(temporary / "file", "");
    EXPECT_THROW(makePrivateDirectory(temporary / "file"), FileError);
    if (geteuid() == 0) {
        std::filesystem::create_directory(temporary / "foreign");
        ASSERT_EQ(chown((temporary / "foreign").c_str(), 12345, 12345), 0);
        EXPECT_THROW(makePrivateDirectory(temporary / "foreign"), FileError);
    }
}

TEST(AtomicFile, ReplacesWholeWithTheModeGivenAndLeavesNothingBeside) {
    const TemporaryDirectory temporary;
    const path file = temporary / "file";
    EXPECT_EQ(readFile(file), std::nullopt);
    const mode_t before = umask(0077);
    replaceFile(file, "old", 0644);
    umask(before);
    EXPECT_EQ(modeOf(file), 0644U);
    const Bytes large(300'000, '\0');
    replaceFile(file, large);
    EXPECT_EQ(readFile(file), large);
    EXPECT_EQ(modeOf(file), 0600U);

    // A link in the file's place is replaced; what it points to stays.
    test::writeFile(temporary / "target", "target");
    std::filesystem::create_symlink(temporary / "target", temporary / "link");
    replaceFile(temporary / "link", "own");
    EXPECT_EQ(test::contentsOf(temporary / "target"), "target");
    EXPECT_FALSE(std::filesystem::is_symlink(temporary / "link"));

    std::filesystem::create_directory(temporary / "directory");
    EXPECT_THROW(replaceFile(temporary / "directory", "x"), FileError);
    EXPECT_THROW(replaceFile(temporary / "missing/file", "x"), FileError);
    const auto entries = std::filesystem::directory_iterator(temporary.path());
    EXPECT_EQ(std::distance(begin(entries), end(entries)), 4) << "a failed replacement left a file behind";
}

}}
