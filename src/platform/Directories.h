#pragma once

#include <filesystem>

namespace velmo {

/// Where one installation keeps its files (XDG Base Directory 0.8, freedesktop.org). All of it belongs to one person.
///
/// `VELMO_HOME=DIR` makes the installation portable: everything lies in config/, data/, cache/, run/ and state/ below
/// DIR. Otherwise each directory is "velmo-mail" below the XDG base directory of its kind. A base directory that the
/// environment gives as an empty or relative path is ignored.
struct Directories {
    enum class Installation { user, portable };

    std::filesystem::path config;
    std::filesystem::path data;
    std::filesystem::path cache;
    /// Sockets and other things that end with the session. Without a runtime directory of the system it is below cache.
    std::filesystem::path run;
    /// Logs.
    std::filesystem::path state;
    Installation installation = Installation::user;

    /// Reads the environment; makes nothing. Throws FileError when there is neither a home directory nor VELMO_HOME.
    static Directories fromEnvironment();

    /// The portable installation below `home`, which is made absolute.
    static Directories below(const std::filesystem::path& home);

    /// Makes all of them that are missing. Throws FileError.
    void make() const;
};

/// Makes `directory` with what is missing above it, mode 0700. One that exists already and is ours is closed to others.
/// Throws FileError, also when something else stands there or it belongs to another user.
void makePrivateDirectory(const std::filesystem::path& directory);

}
