#include "platform/Log.h"
#include "platform/Directories.h"
#include "support/EnvironmentGuard.h"
#include "support/TemporaryDirectory.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <sys/stat.h>

namespace velmo { namespace {

using test::EnvironmentGuard;
using test::TemporaryDirectory;

std::string logged(const char* showPrivate, const std::function<void()>& body) {
    const TemporaryDirectory temporary;
    const EnvironmentGuard level("VELMO_LOG", std::nullopt);
    const EnvironmentGuard shows("VELMO_LOG_PRIVATE", showPrivate);
    startLogging(Directories::below(temporary.path()));
    body();
    stopLogging();
    const auto file = temporary / "state/velmo-mail.log";
    struct stat status {};
    EXPECT_EQ(stat(file.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
    return test::contentsOf(file);
}

TEST(Log, MasksPrivateValuesUnlessAskedForThem) {
    const auto body = [] {
        log("Mail").error("Sync failed for {}: {} ({})", priv("ada@example.org"), pub("no route"), 3);
        log("Mail").debug("not in the file");
    };
    const auto masked = logged("0", body);
    EXPECT_NE(masked.find("mail.velmo.app:Mail Sync failed for <private>: no route (3)\n"), std::string::npos)
        << masked;
    EXPECT_EQ(masked.find("not in the file"), std::string::npos);
    EXPECT_NE(logged("1", body).find("for ada@example.org:"), std::string::npos);
}

TEST(Log, AServerCanForgeNoLine) {
    const auto text =
        logged("1", [] { log("Mail").info("{} {}", pub("{} a\r\nb\x1b[2J\x85"), priv("\u2028\u202E\u009B\0|")); });
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1) << text;
    EXPECT_NE(text.find("{} a\\r\\nb\\u{1b}[2J\uFFFD \\u{2028}\\u{202e}\\u{9b}"), std::string::npos) << text;
}

}}
