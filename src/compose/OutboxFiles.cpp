#include "compose/OutboxFiles.h"

#include "platform/AtomicFile.h"
#include "platform/Directories.h"
#include "platform/FileError.h"
#include "platform/StagedFile.h"

#include <algorithm>
#include <expected>
#include <future>
#include <set>
#include <string>
#include <system_error>

namespace velmo {

namespace {

constexpr std::string_view waiting = ".json";
constexpr std::string_view taken = ".taken";
constexpr std::string_view sent = ".sent";
constexpr std::string_view bytes = ".eml";

/// Gives the name that it has then: its own where the disk refuses another.
std::filesystem::path setAside(const std::filesystem::path& file) {
    std::filesystem::path aside = file;
    aside += ".damaged";
    std::error_code stays;
    std::filesystem::rename(file, aside, stays);
    return stays ? file : aside;
}

enum class Flaw { damaged, unreadable };

std::expected<OutboxItem, Flaw> itemIn(const std::filesystem::path& file) {
    try {
        const auto content = readFile(file);
        if (!content) return std::unexpected(Flaw::unreadable);
        auto item = OutboxItem::fromJSON(*content);
        if (item) return *std::move(item);
        return std::unexpected(Flaw::damaged);
    } catch (const FileError&) {
        return std::unexpected(Flaw::unreadable);
    }
}

/// Two threads share the work: what a thousand items hold takes longer to understand than to read.
std::vector<std::expected<OutboxItem, Flaw>> itemsIn(const std::vector<std::filesystem::path>& files) {
    std::vector<std::expected<OutboxItem, Flaw>> items(files.size(), std::unexpected(Flaw::unreadable));
    const auto readEverySecond = [&](std::size_t first) {
        for (std::size_t i = first; i < files.size(); i += 2) items[i] = itemIn(files[i]);
    };
    auto others = std::async([&] { readEverySecond(1); });
    readEverySecond(0);
    others.get();
    return items;
}

}

std::filesystem::path OutboxFiles::fileOf(const UUID& id, std::string_view ending) const {
    return folder_ / (id.text() + std::string(ending));
}

OutboxFiles::Found OutboxFiles::load() const {
    Found found;
    std::error_code missing;
    if (folder_.empty() || !std::filesystem::is_directory(folder_, missing)) return found;
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator(folder_)) {
        const auto ending = entry.path().extension();
        if (ending == waiting || ending == taken || ending == sent) files.push_back(entry.path());
    }
    auto items = itemsIn(files);
    for (std::size_t i = 0; i < files.size(); ++i) {
        const std::string ending = files[i].extension().string();
        auto& list = ending == waiting ? found.waiting : ending == taken ? found.taken : found.sent;
        // Its name is how it is removed.
        if (items[i] && fileOf(items[i]->id, ending) == files[i])
            list.push_back(*std::move(items[i]));
        else if (!items[i] && items[i].error() == Flaw::unreadable)
            found.setAside.push_back(files[i]); // it may be whole, and readable at the next start
        else
            found.setAside.push_back(setAside(files[i]));
    }
    std::ranges::stable_sort(found.waiting, {}, &OutboxItem::sendAt);
    dropForgotten(found);
    return found;
}

/// Bytes without an item, and files that were never written to their end, whose names are hidden.
void OutboxFiles::dropForgotten(const Found& found) const {
    std::set<std::filesystem::path> wanted;
    for (const auto* items : {&found.waiting, &found.sent})
        for (const auto& item : *items) wanted.insert(fileOf(item.id, bytes));
    std::vector<std::filesystem::path> forgotten;
    for (const auto& entry : std::filesystem::directory_iterator(folder_)) {
        const auto& file = entry.path();
        const bool isUnfinished = file.filename().string().starts_with('.');
        if (isUnfinished || (file.extension() == bytes && !wanted.contains(file))) forgotten.push_back(file);
    }
    std::error_code stays;
    for (const auto& file : forgotten) std::filesystem::remove(file, stays);
}

void OutboxFiles::write(const OutboxItem& item) const {
    if (folder_.empty()) return;
    makePrivateDirectory(folder_);
    replaceFile(fileOf(item.id, waiting), item.json());
    removeTaken(item.id);
}

void OutboxFiles::writeTaken(const OutboxItem& item) const {
    if (folder_.empty()) return;
    makePrivateDirectory(folder_);
    replaceFile(fileOf(item.id, taken), item.json());
}

void OutboxFiles::keepMessage(const UUID& id, BytesView message) const {
    if (!folder_.empty()) replaceFile(fileOf(id, bytes), message);
}

std::optional<Bytes> OutboxFiles::message(const UUID& id) const {
    return folder_.empty() ? std::nullopt : readFile(fileOf(id, bytes));
}

void OutboxFiles::dropMessage(const UUID& id) const {
    removeFiles(id, {bytes});
}

void OutboxFiles::noteSent(const UUID& id) const {
    rename(id, sent);
}

void OutboxFiles::noteTaken(const UUID& id) const {
    rename(id, taken);
    removeFiles(id, {bytes});
}

void OutboxFiles::rename(const UUID& id, std::string_view ending) const {
    if (folder_.empty()) return;
    const auto file = fileOf(id, waiting);
    std::error_code reason;
    std::filesystem::rename(file, fileOf(id, ending), reason);
    if (reason == std::errc::no_such_file_or_directory) return;
    if (reason) throw FileError(file, reason);
    flushDirectory(folder_);
}

void OutboxFiles::remove(const UUID& id) const {
    removeFiles(id, {waiting, bytes});
}

void OutboxFiles::removeTaken(const UUID& id) const {
    removeFiles(id, {taken});
}

void OutboxFiles::removeSent(const UUID& id) const {
    removeFiles(id, {sent, bytes});
}

void OutboxFiles::removeFiles(const UUID& id, std::initializer_list<std::string_view> endings) const {
    if (folder_.empty()) return;
    bool wasThere = false;
    for (const auto ending : endings) {
        const auto file = fileOf(id, ending);
        std::error_code reason;
        wasThere = std::filesystem::remove(file, reason) || wasThere;
        if (reason) throw FileError(file, reason);
    }
    if (wasThere) flushDirectory(folder_);
}

}
