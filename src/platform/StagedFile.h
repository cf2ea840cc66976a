#pragma once

#include "base/Bytes.h"
#include "platform/FileDescriptor.h"

#include <filesystem>
#include <string>
#include <sys/types.h>

namespace velmo {

/// New contents on their way into a file: written beside its place, or elsewhere on the same file system. Dropped
/// before they are put in place, they go again. Every operation throws FileError, which names the file itself.
///
/// What is put in place unflushed may be there empty, or in part, after the power was cut: file systems write names
/// before contents. So either each file is flushed first, or `flushFileSystem` is called for several of them at once,
/// which costs the disk about as much as one.
class StagedFile {
  public:
    /// Writes the contents for `file` into `directory`, under a hidden name that nobody else uses. The file will have
    /// exactly `mode`, whatever the umask.
    StagedFile(std::filesystem::path file, const std::filesystem::path& directory, BytesView bytes, mode_t mode = 0600);
    StagedFile(StagedFile&& other) noexcept;
    StagedFile& operator=(StagedFile&& other) noexcept;
    ~StagedFile();

    const std::filesystem::path& file() const { return file_; }

    void flush();

    /// Lets go of the open file, for those who wait in numbers; it is not flushed by itself after this.
    void close() { descriptor_ = FileDescriptor(); }

    /// Gives it its name; a file that was there is replaced.
    void putInPlace();

  private:
    StagedFile(std::filesystem::path file, const std::filesystem::path& directory);

    std::filesystem::path file_;
    std::string name_; ///< empty when it has gone
    FileDescriptor descriptor_;
};

/// Waits until the disk has the contents of all files that were written, on the file system of `place`. Throws
/// FileError.
void flushFileSystem(const std::filesystem::path& place);

/// Waits until the disk has the names in a directory. Throws FileError.
void flushDirectory(const std::filesystem::path& directory);

}
