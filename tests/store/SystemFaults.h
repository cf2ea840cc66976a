#pragma once

#include <cstdint>
#include <filesystem>

/// Faults of the machine beneath the program. This test program puts its own functions before those of the C library
/// that write; they do what is asked of them until a fault is set here.
namespace velmo::test {

/// What changes the world outside the process.
enum class Deed { fileWrite, rename, removal, commit, socketWrite };

/// Ends this process with SIGKILL at the `number`-th deed of this kind from now on, counted from 1: before it is done,
/// a write to a file halfway. Commits are those of databases opened after this call.
void dieAt(Deed deed, long number);

/// The deeds of this kind since the last call of `dieAt` or `countDeeds`.
void countDeeds();
long deedsDone(Deed deed);

/// A disk that refuses what is written below a directory, as long as this lives; one at a time.
class RefusingDisk {
  public:
    /// Takes so many bytes yet. From then on writes fail with `error`; with EROFS nothing is renamed or made either.
    RefusingDisk(const std::filesystem::path& directory, int error, std::int64_t room);
    ~RefusingDisk();
    RefusingDisk(const RefusingDisk&) = delete;
    RefusingDisk& operator=(const RefusingDisk&) = delete;

    /// How often it has refused.
    long refusals() const;
};

}
