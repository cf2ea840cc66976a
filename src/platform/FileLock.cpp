#include "platform/FileLock.h"

#include "platform/FileError.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>

namespace velmo {

namespace {

FileDescriptor opened(const std::filesystem::path& file) {
    FileDescriptor descriptor(::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (!descriptor) throw FileError(file, {errno, std::generic_category()});
    return descriptor;
}

/// False when `how` says not to wait and someone else has it.
bool locked(const FileDescriptor& descriptor, int how, const std::filesystem::path& file) {
    while (::flock(descriptor.get(), how) != 0) {
        if (errno == EWOULDBLOCK) return false;
        if (errno != EINTR) throw FileError(file, {errno, std::generic_category()});
    }
    return true;
}

}

FileLock::FileLock(const std::filesystem::path& file) : descriptor_(opened(file)) {
    locked(descriptor_, LOCK_EX, file);
}

std::optional<FileLock> FileLock::tryLock(const std::filesystem::path& file) {
    FileDescriptor descriptor = opened(file);
    if (!locked(descriptor, LOCK_EX | LOCK_NB, file)) return std::nullopt;
    return FileLock(std::move(descriptor));
}

}
