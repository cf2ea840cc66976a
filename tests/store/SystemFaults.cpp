#include "store/SystemFaults.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <fmt/format.h>
#include <limits>
#include <mutex>
#include <optional>
#include <sqlite3.h>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace velmo::test {

namespace {

constexpr long never = std::numeric_limits<long>::max();

// --- Deaths ------------------------------------------------------------------------------------------------------

std::array<std::atomic<long>, 5> done;
std::atomic<bool> isCounting = false;
std::atomic<Deed> deadlyDeed = Deed::fileWrite;
std::atomic<long> deadlyNumber = never;

/// True when the process is to end now.
bool isDeadly(Deed deed) {
    if (!isCounting) return false;
    const long number = ++done[static_cast<std::size_t>(deed)];
    return deed == deadlyDeed && number == deadlyNumber;
}

[[noreturn]] void die() {
    ::kill(::getpid(), SIGKILL);
    for (;;) ::pause();
}

void pass(Deed deed) {
    if (isDeadly(deed)) die();
}

extern "C" int onCommit(void*) {
    pass(Deed::commit);
    return 0;
}

extern "C" int onOpen(sqlite3* connection, char**, const void*) {
    sqlite3_commit_hook(connection, onCommit, nullptr);
    return SQLITE_OK;
}

// --- Refusals ----------------------------------------------------------------------------------------------------

struct Disk {
    std::string directory;
    int error = 0;
    std::int64_t room = 0;
    long refusals = 0;

    bool holds(std::string_view path) const { return path.starts_with(directory); }
    bool isReadOnly() const { return error == EROFS && room <= 0; }
    int refuse() {
        ++refusals;
        return error;
    }
};

std::mutex diskMutex; // guards the disk
std::optional<Disk> disk;
std::atomic<bool> hasDisk = false;

std::string pathOf(int file) {
    std::array<char, 4096> path;
    const auto length = ::readlink(fmt::format("/proc/self/fd/{}", file).c_str(), path.data(), path.size());
    return {path.data(), static_cast<std::size_t>(std::max<ssize_t>(length, 0))};
}

/// How many of the bytes may be written; what is absent is refused, with errno set.
std::optional<std::size_t> allowance(int file, std::size_t size) {
    if (!hasDisk) return size;
    const auto path = pathOf(file);
    const std::lock_guard lock(diskMutex);
    if (!disk || !disk->holds(path)) return size;
    const auto allowed = std::min(static_cast<std::int64_t>(size), disk->room);
    if (allowed <= 0 && size > 0) {
        errno = disk->refuse();
        return std::nullopt;
    }
    disk->room -= allowed;
    return static_cast<std::size_t>(allowed);
}

/// Whether names may not be changed below a directory any longer; sets errno.
bool refusesNames(std::string_view path) {
    if (!hasDisk) return false;
    const std::lock_guard lock(diskMutex);
    if (!disk || !disk->holds(path) || !disk->isReadOnly()) return false;
    errno = disk->refuse();
    return true;
}

bool isRegular(int file) {
    struct stat status {};
    return ::fstat(file, &status) == 0 && S_ISREG(status.st_mode);
}

template <class Write>
ssize_t written(int file, std::size_t size, Write write) {
    if (isCounting && isRegular(file) && isDeadly(Deed::fileWrite)) {
        if (write(size / 2) >= 0) die();
    }
    const auto allowed = allowance(file, size);
    return allowed ? write(*allowed) : -1;
}

}

void countDeeds() {
    deadlyNumber = never;
    for (auto& number : done) number = 0;
    isCounting = true;
}

void dieAt(Deed deed, long number) {
    countDeeds();
    deadlyDeed = deed;
    deadlyNumber = number;
    sqlite3_auto_extension(reinterpret_cast<void (*)()>(onOpen));
}

long deedsDone(Deed deed) {
    return done[static_cast<std::size_t>(deed)];
}

RefusingDisk::RefusingDisk(const std::filesystem::path& directory, int error, std::int64_t room) {
    const std::lock_guard lock(diskMutex);
    disk = Disk{directory.native(), error, room, 0};
    hasDisk = true;
}

RefusingDisk::~RefusingDisk() {
    const std::lock_guard lock(diskMutex);
    hasDisk = false;
    disk.reset();
}

long RefusingDisk::refusals() const {
    const std::lock_guard lock(diskMutex);
    return disk->refusals;
}

}

// --- In place of the C library's -----------------------------------------------------------------------------------

using velmo::test::Deed;

extern "C" {

ssize_t write(int file, const void* bytes, std::size_t size) {
    return velmo::test::written(file, size, [&](std::size_t part) { return ::syscall(SYS_write, file, bytes, part); });
}

ssize_t pwrite64(int file, const void* bytes, std::size_t size, off64_t offset) {
    return velmo::test::written(file, size,
                                [&](std::size_t part) { return ::syscall(SYS_pwrite64, file, bytes, part, offset); });
}

ssize_t sendmsg(int socket, const msghdr* message, int flags) {
    velmo::test::pass(Deed::socketWrite);
    return ::syscall(SYS_sendmsg, socket, message, flags);
}

ssize_t send(int socket, const void* bytes, std::size_t size, int flags) {
    velmo::test::pass(Deed::socketWrite);
    return ::syscall(SYS_sendto, socket, bytes, size, flags, nullptr, 0);
}

int rename(const char* from, const char* to) noexcept {
    velmo::test::pass(Deed::rename);
    return velmo::test::refusesNames(to) ? -1 : static_cast<int>(::syscall(SYS_rename, from, to));
}

int remove(const char* path) noexcept {
    velmo::test::pass(Deed::removal);
    if (velmo::test::refusesNames(path)) return -1;
    if (::syscall(SYS_unlink, path) == 0) return 0;
    return errno == EISDIR || errno == EPERM ? static_cast<int>(::syscall(SYS_rmdir, path)) : -1;
}

int mkdir(const char* path, mode_t mode) noexcept {
    return velmo::test::refusesNames(path) ? -1 : static_cast<int>(::syscall(SYS_mkdir, path, mode));
}
}
