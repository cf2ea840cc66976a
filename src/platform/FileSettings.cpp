#include "platform/FileSettings.h"

#include "base/Text.h"
#include "platform/AtomicFile.h"
#include "platform/Directories.h"
#include "platform/FileError.h"
#include "platform/FileLock.h"
#include "platform/SettingsJSON.h"

#include <cerrno>
#include <fcntl.h>
#include <functional>
#include <nlohmann/json.hpp>
#include <sys/stat.h>

namespace velmo {

using nlohmann::json;
using std::filesystem::path;

namespace {

bool isSameFile(const struct stat& a, const struct stat& b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size &&
           a.st_mtim.tv_sec == b.st_mtim.tv_sec && a.st_mtim.tv_nsec == b.st_mtim.tv_nsec;
}

/// Nothing for a file that is no JSON object. An empty file holds nothing worth keeping, and counts as an empty object.
std::optional<json> parsedObject(BytesView bytes) {
    if (text::trimmed(bytes).empty()) return json::object();
    json document = json::parse(bytes, nullptr, /*allow_exceptions=*/false);
    if (!document.is_object()) return std::nullopt;
    return document;
}

void setAside(const path& file) {
    for (unsigned number = 1;; ++number) {
        const path aside = file.string() + ".damaged-" + std::to_string(number);
        // A hard link never overwrites an earlier file that was set aside.
        if (::link(file.c_str(), aside.c_str()) == 0) break;
        if (errno != EEXIST) throw FileError(aside, {errno, std::generic_category()});
    }
    if (::unlink(file.c_str()) != 0) throw FileError(file, {errno, std::generic_category()});
}

}

struct FileSettings::State {
    explicit State(path name) : file(std::move(name)), lockFile(file.string() + ".lock") {}

    /// Brings `document` up to date with the file, unless it is already.
    void refresh();
    /// The same for readers: never throws.
    void refreshQuietly();
    void load(FileDescriptor opened);
    void change(const std::function<void(json&)>& edit);

    const path file;
    const path lockFile;
    std::mutex mutex;
    json document = json::object();
    // The file that `document` was read from stays open, so that its inode number cannot return in another file.
    FileDescriptor source;
    struct stat sourceStatus {};
    bool isDamaged = false;
};

void FileSettings::State::refresh() {
    struct stat status {};
    if (source && ::stat(file.c_str(), &status) == 0 && isSameFile(status, sourceStatus)) return;
    FileDescriptor opened(::open(file.c_str(), O_RDONLY | O_CLOEXEC));
    if (opened) return load(std::move(opened));
    const int reason = errno;
    document = json::object();
    source = FileDescriptor();
    isDamaged = false;
    if (reason != ENOENT) throw FileError(file, {reason, std::generic_category()});
}

void FileSettings::State::load(FileDescriptor opened) {
    struct stat status {};
    if (::fstat(opened.get(), &status) != 0) throw FileError(file, {errno, std::generic_category()});
    auto parsed = parsedObject(readWhole(opened, file));
    isDamaged = !parsed;
    document = parsed ? std::move(*parsed) : json::object();
    source = std::move(opened);
    sourceStatus = status;
}

void FileSettings::State::refreshQuietly() {
    try {
        refresh();
        if (!isDamaged) return;
        const FileLock lock(lockFile);
        // Another process may have mended the file by now.
        refresh();
        if (isDamaged) setAside(file);
        refresh();
    } catch (const FileError&) {
        // A reader goes on with what there is; a change will tell.
    }
}

void FileSettings::State::change(const std::function<void(json&)>& edit) {
    makePrivateDirectory(file.parent_path());
    const FileLock lock(lockFile);
    refresh();
    if (isDamaged) {
        setAside(file);
        refresh();
    }
    json changed = document;
    edit(changed);
    if (changed == document) return;
    replaceFile(file, changed.dump(2, ' ', false, json::error_handler_t::replace));
    refresh();
}

FileSettings::FileSettings(path file) : state_(std::make_unique<State>(std::filesystem::absolute(file))) {}

FileSettings::~FileSettings() = default;

std::optional<SettingsValue> FileSettings::value(std::string_view key) const {
    const std::scoped_lock lock(state_->mutex);
    state_->refreshQuietly();
    const auto found = state_->document.find(text::repairedUTF8(key));
    if (found == state_->document.end()) return std::nullopt;
    return settingsValue(*found);
}

void FileSettings::set(std::string_view key, SettingsValue value) {
    const std::scoped_lock lock(state_->mutex);
    state_->change([&](json& document) { document[text::repairedUTF8(key)] = settingsJSON(value); });
}

void FileSettings::update(std::string_view key, const Edit& edit) {
    const std::scoped_lock lock(state_->mutex);
    state_->change([&](json& document) {
        const std::string name = text::repairedUTF8(key);
        const auto found = document.find(name);
        document[name] = settingsJSON(edit(found == document.end() ? std::nullopt : settingsValue(*found)));
    });
}

void FileSettings::remove(std::string_view key) {
    const std::scoped_lock lock(state_->mutex);
    state_->change([&](json& document) { document.erase(text::repairedUTF8(key)); });
}

std::vector<std::string> FileSettings::keys() const {
    const std::scoped_lock lock(state_->mutex);
    state_->refreshQuietly();
    std::vector<std::string> keys;
    for (const auto& [key, value] : state_->document.items())
        if (settingsValue(value)) keys.push_back(key);
    return keys;
}

}
