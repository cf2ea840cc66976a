#include "compose/OutboxFiles.h"

#include "platform/AtomicFile.h"
#include "platform/Directories.h"
#include "platform/FileError.h"
#include "platform/StagedFile.h"

#include <algorithm>
#include <system_error>

namespace velmo {

namespace {

constexpr std::string_view ending = ".json";

std::filesystem::path setAside(const std::filesystem::path& file) {
    std::filesystem::path aside = file;
    aside += ".damaged";
    std::error_code reason;
    std::filesystem::rename(file, aside, reason);
    if (reason) throw FileError(file, reason);
    return aside;
}

}

std::filesystem::path OutboxFiles::fileOf(const UUID& id) const {
    return folder_ / (id.text() + std::string(ending));
}

OutboxFiles::Found OutboxFiles::load() const {
    Found found;
    std::error_code missing;
    if (folder_.empty() || !std::filesystem::is_directory(folder_, missing)) return found;
    for (const auto& entry : std::filesystem::directory_iterator(folder_)) {
        const auto& file = entry.path();
        if (file.extension() != ending) continue;
        const auto bytes = readFile(file);
        if (!bytes) continue;
        auto item = OutboxItem::fromJSON(*bytes);
        // Its name is how it is removed.
        if (item && fileOf(item->id) == file)
            found.items.push_back(*std::move(item));
        else
            found.setAside.push_back(setAside(file));
    }
    std::ranges::stable_sort(found.items, {}, &OutboxItem::sendAt);
    return found;
}

void OutboxFiles::write(const OutboxItem& item) const {
    if (folder_.empty()) return;
    makePrivateDirectory(folder_);
    replaceFile(fileOf(item.id), item.json());
}

void OutboxFiles::remove(const UUID& id) const {
    if (folder_.empty()) return;
    const auto file = fileOf(id);
    std::error_code reason;
    const bool wasThere = std::filesystem::remove(file, reason);
    if (reason) throw FileError(file, reason);
    if (wasThere) flushDirectory(folder_);
}

}
