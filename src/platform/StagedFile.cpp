#include "platform/StagedFile.h"

#include "platform/FileError.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <utility>

namespace velmo {

namespace {

using std::filesystem::path;

[[noreturn]] void fail(const path& file) {
    throw FileError(file, {errno, std::generic_category()});
}

void writeAll(int descriptor, BytesView bytes, const path& file) {
    while (!bytes.empty()) {
        const ssize_t count = ::write(descriptor, bytes.data(), bytes.size());
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) fail(file);
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
}

FileDescriptor openDirectory(const path& directory) {
    FileDescriptor descriptor(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!descriptor) fail(directory);
    return descriptor;
}

}

StagedFile::StagedFile(path file, const path& directory)
    : file_(std::move(file)),
      name_(directory / ("." + file_.filename().string() + ".XXXXXX")),
      descriptor_(::mkostemp(name_.data(), O_CLOEXEC)) {}

// Made in two steps, so that what fails in the second is removed again.
StagedFile::StagedFile(path file, const path& directory, BytesView bytes, mode_t mode)
    : StagedFile(std::move(file), directory) {
    if (!descriptor_) {
        name_.clear();
        fail(file_);
    }
    writeAll(descriptor_.get(), bytes, file_);
    if (::fchmod(descriptor_.get(), mode) != 0) fail(file_);
}

StagedFile::StagedFile(StagedFile&& other) noexcept
    : file_(std::move(other.file_)), name_(std::exchange(other.name_, {})), descriptor_(std::move(other.descriptor_)) {}

StagedFile& StagedFile::operator=(StagedFile&& other) noexcept {
    file_.swap(other.file_);
    name_.swap(other.name_);
    std::swap(descriptor_, other.descriptor_);
    return *this;
}

StagedFile::~StagedFile() {
    if (!name_.empty()) ::unlink(name_.c_str());
}

void StagedFile::flush() {
    if (::fsync(descriptor_.get()) != 0) fail(file_);
}

void StagedFile::putInPlace() {
    if (::rename(name_.c_str(), file_.c_str()) != 0) fail(file_);
    name_.clear();
}

void flushFileSystem(const path& place) {
    if (::syncfs(openDirectory(place).get()) != 0) fail(place);
}

void flushDirectory(const path& directory) {
    // Some file systems cannot flush a directory and say so; the names stand all the same.
    if (::fsync(openDirectory(directory).get()) != 0 && errno != EINVAL && errno != ENOTSUP) fail(directory);
}

}
