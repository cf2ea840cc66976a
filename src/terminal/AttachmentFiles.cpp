#include "terminal/AttachmentFiles.h"

#include "base/Localisation.h"
#include "base/Text.h"
#include "platform/FileDescriptor.h"
#include "terminal/Console.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace velmo {

namespace {

constexpr std::size_t longestName = 200;
constexpr std::size_t longestExtension = 20;
constexpr int mostTries = 1000;

std::string_view cutAt(std::string_view utf8, std::size_t most) {
    if (utf8.size() <= most) return utf8;
    while (most > 0 && (static_cast<unsigned char>(utf8[most]) & 0xC0) == 0x80) --most;
    return utf8.substr(0, most);
}

struct NameParts {
    std::string stem;
    std::string extension; ///< with its dot
};

NameParts partsOf(const std::string& name) {
    const auto dot = name.rfind('.');
    if (dot == std::string::npos || dot == 0 || name.size() - dot > longestExtension) return {name, {}};
    return {name.substr(0, dot), name.substr(dot)};
}

AttachmentError failure(const std::filesystem::path& path) {
    return AttachmentError(
        tr("{} could not be written: {}.", path.string(), std::error_code(errno, std::generic_category()).message()));
}

void writeAll(int descriptor, BytesView bytes, const std::filesystem::path& path) {
    while (!bytes.empty()) {
        const ssize_t count = write(descriptor, bytes.data(), bytes.size());
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) throw failure(path);
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
}

std::filesystem::path saveOne(const MIMEAttachment& attachment, int folder, const std::filesystem::path& directory) {
    const NameParts name = partsOf(safeFileName(attachment.filename));
    for (int attempt = 1; attempt <= mostTries; ++attempt) {
        const std::string file =
            attempt == 1 ? name.stem + name.extension : fmt::format("{} ({}){}", name.stem, attempt, name.extension);
        // O_EXCL refuses everything that has the name, dangling links included.
        const FileDescriptor descriptor(
            openat(folder, file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
        if (!descriptor && errno == EEXIST) continue;
        if (!descriptor) throw failure(directory / file);
        try {
            writeAll(descriptor.get(), attachment.data, directory / file);
        } catch (...) {
            unlinkat(folder, file.c_str(), 0);
            throw;
        }
        return directory / file;
    }
    errno = EEXIST;
    throw failure(directory / (name.stem + name.extension));
}

}

std::string safeFileName(std::string_view senderName) {
    std::string name;
    for (const char c : printable(text::repairedUTF8(senderName))) name += c == '/' || c == '\\' ? '_' : c;
    const auto start = name.find_first_not_of(". \t");
    name.erase(0, start == std::string::npos ? name.size() : start);
    name.erase(name.find_last_not_of(". \t") + 1);
    if (name.empty()) return "attachment";
    const NameParts parts = partsOf(name);
    return std::string(cutAt(parts.stem, longestName - parts.extension.size())) + parts.extension;
}

std::vector<std::filesystem::path> saveAttachments(const std::vector<MIMEAttachment>& attachments,
                                                   const std::filesystem::path& directory) {
    if (mkdir(directory.c_str(), 0700) != 0 && errno != EEXIST) throw failure(directory);
    const FileDescriptor folder(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!folder) throw failure(directory);
    std::vector<std::filesystem::path> saved;
    for (const auto& attachment : attachments) saved.push_back(saveOne(attachment, folder.get(), directory));
    return saved;
}

}
