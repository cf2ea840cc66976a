#include "terminal/CommandSocket.h"

#include "platform/FileError.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace velmo {

namespace {

std::error_code lastError() {
    return {errno, std::generic_category()};
}

/// The address of a socket. One that is too long for the system goes through the open directory instead.
class Address {
  public:
    explicit Address(const std::filesystem::path& path) {
        value_.sun_family = AF_UNIX;
        std::string name = path.string();
        if (name.size() >= sizeof value_.sun_path) {
            directory_ = FileDescriptor(open(path.parent_path().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
            name = fmt::format("/proc/self/fd/{}/{}", directory_.get(), path.filename().string());
        }
        if (name.size() < sizeof value_.sun_path) std::memcpy(value_.sun_path, name.c_str(), name.size() + 1);
    }

    const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&value_); }
    static constexpr socklen_t size = sizeof(sockaddr_un);

  private:
    sockaddr_un value_{};
    FileDescriptor directory_;
};

FileDescriptor madeSocket() {
    return FileDescriptor(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
}

}

std::filesystem::path commandSocket(const Directories& directories) {
    return directories.run / "velmo-mail.sock";
}

FileDescriptor listenAt(const std::filesystem::path& path) {
    FileDescriptor listener = madeSocket();
    const Address address(path);
    if (unlink(path.c_str()) != 0 && errno != ENOENT) throw FileError(path, lastError());
    // The file gets the mode of the socket.
    if (!listener || fchmod(listener.get(), 0600) != 0 || bind(listener.get(), address.get(), Address::size) != 0 ||
        listen(listener.get(), SOMAXCONN) != 0)
        throw FileError(path, lastError());
    return listener;
}

std::expected<FileDescriptor, std::error_code> connectTo(const std::filesystem::path& path) {
    FileDescriptor descriptor = madeSocket();
    const Address address(path);
    if (!descriptor || connect(descriptor.get(), address.get(), Address::size) != 0)
        return std::unexpected(lastError());
    return descriptor;
}

bool isOwnPeer(int descriptor) {
    ucred peer{};
    socklen_t size = sizeof peer;
    return getsockopt(descriptor, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 && peer.uid == geteuid();
}

}
