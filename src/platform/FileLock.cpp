#include "platform/FileLock.h"

#include "platform/FileError.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>

namespace velmo {

FileLock::FileLock(const std::filesystem::path& file)
    : descriptor_(::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600)) {
    if (!descriptor_) throw FileError(file, {errno, std::generic_category()});
    while (::flock(descriptor_.get(), LOCK_EX) != 0)
        if (errno != EINTR) throw FileError(file, {errno, std::generic_category()});
}

}
