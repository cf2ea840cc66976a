#include "platform/Keychain.h"
#include "platform/Directories.h"
#include "platform/FileKeychain.h"
#include "platform/FileSettings.h"
#include "support/EnvironmentGuard.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>
#include <libsecret/secret.h>
#include <sys/stat.h>

namespace velmo { namespace {

using std::filesystem::path;
using test::EnvironmentGuard;
using test::TemporaryDirectory;

constexpr std::string_view service = applicationIdentifier;

std::string secretOf(Keychain& keychain, std::string_view account, std::string_view inService = service) {
    const auto found = keychain.find(inService, account);
    if (const auto* secret = std::get_if<std::string>(&found)) return *secret;
    if (const auto* reason = std::get_if<KeychainUnavailable>(&found)) return "unavailable: " + reason->sentence();
    return "none";
}

/// What every keychain must do.
void checkOperations(Keychain& keychain) {
    const std::string secret = "p\u00e4ss \"word\"\n";
    EXPECT_EQ(secretOf(keychain, "mail-account.A"), "none");
    EXPECT_TRUE(keychain.remove(service, "mail-account.A"));
    EXPECT_TRUE(keychain.add(service, "mail-account.A", "old"));
    EXPECT_TRUE(keychain.add(service, "mail-account.A", secret));
    EXPECT_TRUE(keychain.add(service, "mail-account.B", "b"));
    EXPECT_TRUE(keychain.add("other.service", "mail-account.A", "other"));
    EXPECT_EQ(secretOf(keychain, "mail-account.A"), secret);
    EXPECT_EQ(secretOf(keychain, "mail-account.A", "other.service"), "other");
    EXPECT_EQ(secretOf(keychain, "mail-account."), "none");
    EXPECT_EQ(secretOf(keychain, "MAIL-ACCOUNT.A"), "none");
    EXPECT_TRUE(keychain.remove(service, "mail-account.A"));
    EXPECT_EQ(secretOf(keychain, "mail-account.A"), "none");
    EXPECT_EQ(secretOf(keychain, "mail-account.B"), "b");
    EXPECT_EQ(secretOf(keychain, "mail-account.A", "other.service"), "other");
}

TEST(FileKeychain, StoresPrivatelyAndExactly) {
    const TemporaryDirectory temporary;
    const path file = temporary / "secrets/secrets.json";
    FileKeychain keychain(file);
    checkOperations(keychain);
    struct stat status {};
    ASSERT_EQ(stat(file.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
    ASSERT_EQ(stat(file.parent_path().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0700U);

    ASSERT_TRUE(keychain.add(service, "binary", "\xFF"));
    EXPECT_EQ(secretOf(keychain, "binary"), "none");
}

TEST(FileKeychain, TouchesNoFileThatOthersCouldHaveReadOrPlanted) {
    struct Case {
        const char* name;
        std::function<void(const path& file)> spoil;
    };
    const std::vector<Case> cases{
        {"readable by the group", [](const path& file) { chmod(file.c_str(), 0640); }},
        {"directory open to others", [](const path& file) { chmod(file.parent_path().c_str(), 0711); }},
        {"symbolic link",
         [](const path& file) {
             rename(file.c_str(), (file.string() + ".moved").c_str());
             std::filesystem::create_symlink(file.string() + ".moved", file);
         }},
        {"pipe",
         [](const path& file) {
             std::filesystem::remove(file);
             mkfifo(file.c_str(), 0600);
         }},
        {"damaged", [](const path& file) { test::writeFile(file, "{"); }},
        {"of another user", [](const path& file) { ASSERT_EQ(chown(file.c_str(), 12345, 12345), 0); }},
    };
    for (const auto& [name, spoil] : cases) {
        SCOPED_TRACE(name);
        if (std::string_view(name) == "of another user" && geteuid() != 0) continue;
        const TemporaryDirectory temporary;
        const path file = temporary / "secrets/secrets.json";
        FileKeychain keychain(file);
        ASSERT_TRUE(keychain.add(service, "a", "secret"));
        spoil(file);
        const auto before = std::filesystem::is_fifo(file) ? "" : test::contentsOf(file);
        EXPECT_EQ(secretOf(keychain, "a").substr(0, 11), "unavailable");
        EXPECT_FALSE(keychain.add(service, "a", "new"));
        EXPECT_FALSE(keychain.remove(service, "a"));
        EXPECT_EQ(std::filesystem::is_fifo(file) ? "" : test::contentsOf(file), before);
    }
}

TEST(Keychain, APortableInstallationKeepsItsFileAndSaysSoOnce) {
    const TemporaryDirectory temporary;
    MemorySettings settings;
    const auto keychain = openKeychain(Directories::below(temporary.path()), settings);
    EXPECT_EQ(keychain->notice(), std::nullopt);
    checkOperations(*keychain);
    const auto notice = keychain->notice().value_or("");
    EXPECT_NE(notice.find("data/secrets/secrets.json"), std::string::npos) << notice;
    EXPECT_EQ(openKeychain(Directories::below(temporary.path()), settings)->notice(), std::nullopt);
}

// --- Against the real keyring daemon: this program runs itself again on message buses of its own -----------------

/// The installation whose home directory the sessions share.
struct Home {
    Home() : settings(path(std::getenv("HOME")) / "settings.json"), keychain(openKeychain(directories(), settings)) {}

    static Directories directories() {
        Directories result = Directories::below(std::getenv("HOME"));
        result.installation = Directories::Installation::user;
        return result;
    }

    FileSettings settings;
    std::unique_ptr<Keychain> keychain;
};

void lockDefaultCollection() {
    auto* secretService = secret_service_get_sync(SECRET_SERVICE_NONE, nullptr, nullptr);
    ASSERT_NE(secretService, nullptr);
    auto* collection = secret_collection_for_alias_sync(secretService, SECRET_COLLECTION_DEFAULT,
                                                        SECRET_COLLECTION_NONE, nullptr, nullptr);
    ASSERT_NE(collection, nullptr);
    GList only{collection, nullptr, nullptr};
    GList* locked = nullptr;
    EXPECT_EQ(secret_service_lock_sync(secretService, &only, nullptr, &locked, nullptr), 1);
    g_list_free_full(locked, g_object_unref);
    g_object_unref(collection);
    g_object_unref(secretService);
}

void unlocked() {
    Home home;
    checkOperations(*home.keychain);
    EXPECT_TRUE(home.keychain->add(service, "kept", "secret"));
    EXPECT_EQ(home.keychain->notice(), std::nullopt);
    EXPECT_FALSE(std::filesystem::exists(Home::directories().data / "secrets/secrets.json"));

    lockDefaultCollection();
    for (const char* account : {"kept", "never stored"})
        EXPECT_NE(secretOf(*home.keychain, account).find("is locked"), std::string::npos) << account;
    EXPECT_FALSE(home.keychain->add(service, "kept", "new"));
    EXPECT_FALSE(home.keychain->remove(service, "kept"));
}

void lockedFromTheStart() {
    Home home;
    EXPECT_NE(secretOf(*home.keychain, "kept").find("is locked"), std::string::npos);
    EXPECT_FALSE(home.keychain->add(service, "other", "secret"));
}

void serviceGone() {
    Home home;
    EXPECT_NE(secretOf(*home.keychain, "kept").find("isn't running"), std::string::npos);
    EXPECT_EQ(home.keychain->notice(), std::nullopt);
    // The way out: a password that is entered again goes into the file, and the person is told.
    EXPECT_TRUE(home.keychain->add(service, "kept", "newer"));
    EXPECT_EQ(secretOf(*home.keychain, "kept"), "newer");
    EXPECT_NE(home.keychain->notice(), std::nullopt);
    EXPECT_EQ(home.keychain->notice(), std::nullopt);
}

void serviceBack() {
    Home home;
    EXPECT_EQ(secretOf(*home.keychain, "kept"), "newer") << "an old password came back";
    EXPECT_TRUE(home.keychain->add(service, "kept", "newest"));
    EXPECT_EQ(secretOf(*home.keychain, "kept"), "newest");
    EXPECT_EQ(test::contentsOf(Home::directories().data / "secrets/secrets.json").find("kept"), std::string::npos);
}

void neverHadAService() {
    Home home;
    checkOperations(*home.keychain);
    EXPECT_NE(home.keychain->notice(), std::nullopt);
}

constexpr struct {
    const char* name;
    void (*run)();
} sessionParts[]{
    {"Unlocked", unlocked},       {"LockedFromTheStart", lockedFromTheStart}, {"ServiceGone", serviceGone},
    {"ServiceBack", serviceBack}, {"NeverHadAService", neverHadAService},
};

constexpr const char* partVariable = "VELMO_TEST_KEYRING_PART";

class SessionPart : public testing::Test {
  public:
    explicit SessionPart(void (*run)()) : run_(run) {}
    void TestBody() override { run_(); }

  private:
    void (*run_)();
};

/// The parts need a session bus of their own, so a part is a test only of the process that is started for it.
[[maybe_unused]] const bool isRegistered = [] {
    const char* wanted = std::getenv(partVariable);
    for (const auto& part : sessionParts) {
        if (wanted == nullptr || std::string_view(wanted) != part.name) continue;
        testing::RegisterTest("KeyringSession", part.name, nullptr, nullptr, __FILE__, __LINE__,
                              [run = part.run]() -> testing::Test* { return new SessionPart(run); });
    }
    return true;
}();

bool isInstalled(const char* program) {
    return std::system((std::string("command -v ") + program + " >/dev/null 2>&1").c_str()) == 0;
}

/// Runs one of the parts above on a fresh session bus, after the shell commands of `before`.
void runInSession(const char* part, const std::string& busOptions, const std::string& before) {
    const auto self = std::filesystem::read_symlink("/proc/self/exe").string();
    const EnvironmentGuard named(partVariable, part);
    const std::string command = "dbus-run-session " + busOptions + " -- sh -c '" + before + " exec \"" + self +
                                "\" --gtest_filter=KeyringSession.*' 2>&1";
    FILE* output = popen(command.c_str(), "r");
    ASSERT_NE(output, nullptr);
    std::string text;
    for (int c = fgetc(output); c != EOF; c = fgetc(output)) text.push_back(static_cast<char>(c));
    EXPECT_EQ(pclose(output), 0) << part << "\n" << text;
    EXPECT_NE(text.find("[  PASSED  ] 1 test."), std::string::npos) << text;
}

TEST(Keychain, UsesTheRealKeyringAndTellsMissingFromLockedFromGone) {
    for (const char* program : {"dbus-run-session", "gnome-keyring-daemon"})
        ASSERT_TRUE(isInstalled(program)) << program;
    const TemporaryDirectory temporary;
    std::filesystem::create_directory(temporary / "run");
    std::filesystem::permissions(temporary / "run", std::filesystem::perms(0700));
    const EnvironmentGuard home("HOME", temporary.path().string());
    const EnvironmentGuard runtime("XDG_RUNTIME_DIR", (temporary / "run").string());
    const EnvironmentGuard data("XDG_DATA_HOME", std::nullopt);
    const EnvironmentGuard display("DISPLAY", std::nullopt);
    const EnvironmentGuard wayland("WAYLAND_DISPLAY", std::nullopt);
    const EnvironmentGuard portable("VELMO_HOME", std::nullopt);

    // A bus that can start no service.
    test::writeFile(temporary / "bare.conf",
                    "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\" "
                    "\"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">"
                    "<busconfig><type>session</type><listen>unix:tmpdir=/tmp</listen><auth>EXTERNAL</auth>"
                    "<policy context=\"default\"><allow send_destination=\"*\"/><allow eavesdrop=\"true\"/>"
                    "<allow own=\"*\"/></policy></busconfig>");
    const std::string bare = "--config-file=" + (temporary / "bare.conf").string();
    const std::string unlock =
        "printf opensesame | gnome-keyring-daemon --daemonize --unlock --components=secrets >/dev/null;";

    runInSession("Unlocked", "", unlock);
    runInSession("LockedFromTheStart", "", "");
    runInSession("ServiceGone", bare, "");
    runInSession("ServiceBack", "", unlock);

    const EnvironmentGuard fresh("HOME", (temporary / "fresh").string());
    std::filesystem::create_directory(temporary / "fresh");
    runInSession("NeverHadAService", bare, "");
    // A daemon that the bus starts, without any keyring, and nobody to ask for one.
    const EnvironmentGuard empty("HOME", (temporary / "empty").string());
    std::filesystem::create_directory(temporary / "empty");
    runInSession("NeverHadAService", "", "");
    // No bus at all.
    const EnvironmentGuard noBus("HOME", (temporary / "nobus").string());
    std::filesystem::create_directory(temporary / "nobus");
    runInSession("NeverHadAService", "", "export DBUS_SESSION_BUS_ADDRESS=unix:path=/nonexistent;");
}

}}
