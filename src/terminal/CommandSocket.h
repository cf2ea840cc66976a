#pragma once

#include "platform/Directories.h"
#include "platform/FileDescriptor.h"

#include <expected>
#include <filesystem>
#include <system_error>

namespace velmo {

/// Where the running application listens for `velmo`: a stream socket in the run directory, mode 0600. Names of any
/// length work. Descriptors are non-blocking.
std::filesystem::path commandSocket(const Directories& directories);

/// Listens at `path`, in the place of a socket that is there already. Throws FileError.
FileDescriptor listenAt(const std::filesystem::path& path);

/// Connects; gives the reason when it can't be done now (resource_unavailable_try_again: too many wait already).
std::expected<FileDescriptor, std::error_code> connectTo(const std::filesystem::path& path);

/// Whether a process of the same user is at the other end.
bool isOwnPeer(int descriptor);

}
