#include "platform/AtomicFile.h"

#include "platform/FileError.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>

namespace velmo {

namespace {

using std::filesystem::path;

[[noreturn]] void fail(const path& file) {
    throw FileError(file, {errno, std::generic_category()});
}

/// A file beside the one to be replaced; it goes again unless `keep` was called.
class FileBeside {
  public:
    explicit FileBeside(const path& file)
        : name_(file.parent_path() / ("." + file.filename().string() + ".XXXXXX")),
          descriptor_(mkostemp(name_.data(), O_CLOEXEC)) {
        if (!descriptor_) fail(file);
    }
    ~FileBeside() {
        if (!name_.empty()) ::unlink(name_.c_str());
    }
    FileBeside(const FileBeside&) = delete;
    FileBeside& operator=(const FileBeside&) = delete;

    const std::string& name() const { return name_; }
    int descriptor() const { return descriptor_.get(); }
    void keep() { name_.clear(); }

  private:
    std::string name_;
    FileDescriptor descriptor_;
};

void writeAll(int descriptor, BytesView bytes, const path& file) {
    while (!bytes.empty()) {
        const ssize_t count = ::write(descriptor, bytes.data(), bytes.size());
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) fail(file);
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
}

void flushDirectory(const path& directory) {
    const FileDescriptor descriptor(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!descriptor) fail(directory);
    // Some file systems cannot flush a directory and say so; the rename stands all the same.
    if (::fsync(descriptor.get()) != 0 && errno != EINVAL && errno != ENOTSUP) fail(directory);
}

}

void replaceFile(const path& given, BytesView bytes, mode_t mode) {
    const path file = std::filesystem::absolute(given);
    FileBeside beside(file);
    writeAll(beside.descriptor(), bytes, file);
    if (::fchmod(beside.descriptor(), mode) != 0) fail(file);
    if (::fsync(beside.descriptor()) != 0) fail(file);
    if (::rename(beside.name().c_str(), file.c_str()) != 0) fail(file);
    beside.keep();
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
