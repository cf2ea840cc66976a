#include "platform/Directories.h"

#include "platform/Application.h"
#include "platform/FileError.h"

#include <cerrno>
#include <cstdlib>
#include <optional>
#include <pwd.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace velmo {

namespace {

using std::filesystem::path;

std::error_code lastError() {
    return {errno, std::generic_category()};
}

std::optional<path> absolutePathFrom(const char* variable) {
    const char* value = std::getenv(variable);
    if (value == nullptr || *value != '/') return std::nullopt;
    return path(value);
}

path homeDirectory() {
    if (auto home = absolutePathFrom("HOME")) return *home;
    std::vector<char> buffer(1 << 14);
    passwd entry{};
    passwd* found = nullptr;
    getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &found);
    if (found == nullptr || found->pw_dir == nullptr || *found->pw_dir != '/')
        throw FileError("HOME", std::make_error_code(std::errc::no_such_file_or_directory));
    return found->pw_dir;
}

struct Status {
    bool exists = false;
    struct stat data {};
};

Status statusOf(const path& file) {
    Status status;
    if (stat(file.c_str(), &status.data) == 0)
        status.exists = true;
    else if (errno != ENOENT)
        throw FileError(file, lastError());
    return status;
}

/// Makes what is missing, the topmost first. Another process may make the same directory at the same moment.
void makeMissing(const path& directory) {
    std::vector<path> missing;
    for (path at = directory; !statusOf(at).exists; at = at.parent_path()) {
        missing.push_back(at);
        if (!at.has_relative_path()) break;
    }
    for (auto it = missing.rbegin(); it != missing.rend(); ++it)
        if (mkdir(it->c_str(), 0700) != 0 && errno != EEXIST) throw FileError(*it, lastError());
}

}

Directories Directories::fromEnvironment() {
    if (const char* home = std::getenv("VELMO_HOME"); home != nullptr && *home != '\0') return below(home);

    std::optional<path> home;
    const auto base = [&](const char* variable, const char* fallback) {
        if (auto given = absolutePathFrom(variable)) return *given / applicationFolder;
        if (!home) home = homeDirectory();
        return *home / fallback / applicationFolder;
    };
    Directories directories;
    directories.config = base("XDG_CONFIG_HOME", ".config");
    directories.data = base("XDG_DATA_HOME", ".local/share");
    directories.cache = base("XDG_CACHE_HOME", ".cache");
    directories.state = base("XDG_STATE_HOME", ".local/state");
    const auto runtime = absolutePathFrom("XDG_RUNTIME_DIR");
    directories.run = runtime ? *runtime / applicationFolder : directories.cache / "run";
    return directories;
}

Directories Directories::below(const path& home) {
    const path root = std::filesystem::absolute(home).lexically_normal();
    return {.config = root / "config",
            .data = root / "data",
            .cache = root / "cache",
            .run = root / "run",
            .state = root / "state",
            .installation = Installation::portable};
}

void Directories::make() const {
    for (const auto& directory : {config, data, cache, run, state}) makePrivateDirectory(directory);
}

void makePrivateDirectory(const path& given) {
    // A trailing slash would make an empty last name.
    const path directory = given.has_filename() ? given : given.parent_path();
    makeMissing(directory);
    const Status status = statusOf(directory);
    if (!status.exists || !S_ISDIR(status.data.st_mode))
        throw FileError(directory, std::make_error_code(std::errc::not_a_directory));
    if (status.data.st_uid != geteuid())
        throw FileError(directory, std::make_error_code(std::errc::operation_not_permitted));
    if ((status.data.st_mode & 077) != 0 && chmod(directory.c_str(), 0700) != 0)
        throw FileError(directory, lastError());
}

}
