#include "platform/AtomicFile.h"

#include "platform/FileError.h"
#include "platform/StagedFile.h"

#include <cerrno>
#include <fcntl.h>

namespace velmo {

namespace {

using std::filesystem::path;

[[noreturn]] void fail(const path& file) {
    throw FileError(file, {errno, std::generic_category()});
}

}

void replaceFile(const path& given, BytesView bytes, mode_t mode) {
    const path file = std::filesystem::absolute(given);
    StagedFile staged(file, file.parent_path(), bytes, mode);
    staged.flush();
    staged.putInPlace();
    flushDirectory(file.parent_path());
}

std::optional<Bytes> readFile(const path& file) {
    const FileDescriptor descriptor(::open(file.c_str(), O_RDONLY | O_CLOEXEC));
    if (!descriptor) {
        if (errno == ENOENT) return std::nullopt;
        fail(file);
    }
    return readWhole(descriptor, file);
}

Bytes readWhole(const FileDescriptor& descriptor, const path& file) {
    Bytes bytes;
    char chunk[1 << 16];
    while (true) {
        const ssize_t count = ::read(descriptor.get(), chunk, sizeof chunk);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) fail(file);
        if (count == 0) return bytes;
        bytes.append(chunk, static_cast<std::size_t>(count));
    }
}

}
