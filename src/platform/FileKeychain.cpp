#include "platform/FileKeychain.h"

#include "base/Localisation.h"
#include "base/Text.h"
#include "platform/AtomicFile.h"
#include "platform/Directories.h"
#include "platform/FileError.h"
#include "platform/FileLock.h"

#include <cerrno>
#include <fcntl.h>
#include <nlohmann/json.hpp>
#include <sys/stat.h>

namespace velmo {

using nlohmann::json;
using std::filesystem::path;

namespace {

KeychainUnavailable notPrivate(const path& file) {
    return KeychainUnavailable(
        tr("{} isn't private. It must belong to you, and nobody else may read it.", file.string()));
}

KeychainUnavailable damaged(const path& file) {
    return KeychainUnavailable(tr(
        "The file with your passwords, {}, is damaged. Move it away and enter your passwords again.", file.string()));
}

bool isOurs(const struct stat& status) {
    return status.st_uid == geteuid() && (status.st_mode & 077) == 0;
}

/// Throws KeychainUnavailable when the directory is there and is not as it must be.
void checkDirectory(const path& directory) {
    struct stat status {};
    if (::lstat(directory.c_str(), &status) != 0) {
        if (errno == ENOENT) return;
        throw FileError(directory, {errno, std::generic_category()});
    }
    if (!S_ISDIR(status.st_mode) || !isOurs(status)) throw notPrivate(directory);
}

/// The object {service: {account: base64 of the secret}}.
json read(const path& file) {
    checkDirectory(file.parent_path());
    // Without O_NONBLOCK a pipe in the place of the file would block for ever.
    const FileDescriptor opened(::open(file.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!opened) {
        if (errno == ENOENT) return json::object();
        if (errno == ELOOP) throw notPrivate(file);
        throw FileError(file, {errno, std::generic_category()});
    }
    struct stat status {};
    if (::fstat(opened.get(), &status) != 0) throw FileError(file, {errno, std::generic_category()});
    if (!S_ISREG(status.st_mode) || !isOurs(status)) throw notPrivate(file);
    json document = json::parse(readWhole(opened, file), nullptr, /*allow_exceptions=*/false);
    if (!document.is_object()) throw damaged(file);
    return document;
}

std::optional<Bytes> secretIn(const json& document, std::string_view service, std::string_view account) {
    const auto accounts = document.find(text::repairedUTF8(service));
    if (accounts == document.end() || !accounts->is_object()) return std::nullopt;
    const auto found = accounts->find(text::repairedUTF8(account));
    if (found == accounts->end() || !found->is_string()) return std::nullopt;
    return text::decodedBase64(found->get_ref<const std::string&>());
}

}

FileKeychain::FileKeychain(path file) : file_(std::move(file)) {}

Keychain::Found FileKeychain::find(std::string_view service, std::string_view account) {
    try {
        auto secret = secretIn(read(file_), service, account);
        if (!secret || !text::isValidUTF8(*secret)) return NoSecret{};
        return std::move(*secret);
    } catch (const KeychainUnavailable& unavailable) {
        return unavailable;
    } catch (const UserError& error) {
        return KeychainUnavailable(error.sentence());
    }
}

Keychain::Done FileKeychain::add(std::string_view service, std::string_view account, std::string_view secret) {
    return change([&](json& document) {
        json& accounts = document[text::repairedUTF8(service)];
        if (!accounts.is_object()) accounts = json::object();
        accounts[text::repairedUTF8(account)] = text::base64(secret);
    });
}

Keychain::Done FileKeychain::remove(std::string_view service, std::string_view account) {
    if (!exists()) return {};
    return change([&](json& document) {
        const auto accounts = document.find(text::repairedUTF8(service));
        if (accounts != document.end() && accounts->is_object()) accounts->erase(text::repairedUTF8(account));
    });
}

bool FileKeychain::exists() const {
    struct stat status {};
    return ::lstat(file_.c_str(), &status) == 0;
}

Keychain::Done FileKeychain::change(const std::function<void(json&)>& edit) {
    try {
        // A directory that others can enter is refused rather than mended: they may have planted something in it.
        checkDirectory(file_.parent_path());
        makePrivateDirectory(file_.parent_path());
        const FileLock lock(file_.string() + ".lock");
        json document = read(file_);
        const json before = document;
        edit(document);
        if (document != before) replaceFile(file_, document.dump(2), 0600);
        return {};
    } catch (const KeychainUnavailable& unavailable) {
        return std::unexpected(unavailable);
    } catch (const UserError& error) {
        return std::unexpected(KeychainUnavailable(error.sentence()));
    }
}

}
