#include "records/MessageFiles.h"

#include "base/Text.h"
#include "platform/AtomicFile.h"
#include "platform/Directories.h"
#include "platform/FileError.h"

#include <algorithm>
#include <array>
#include <openssl/sha.h>
#include <set>
#include <span>
#include <sys/stat.h>

namespace velmo {

namespace fs = std::filesystem;

namespace {

/// A file name holds 255 bytes; the rest is for the dash and the number.
constexpr std::size_t longestMailboxName = 220;

std::string hexadecimal(std::span<const unsigned char> bytes) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string out;
    for (const auto byte : bytes) {
        out += digits[byte >> 4];
        out += digits[byte & 15];
    }
    return out;
}

/// The mailbox path as one component of a file path.
std::string mailboxName(std::string_view path) {
    auto name = text::base64(path);
    std::ranges::replace(name, '/', '_');
    std::ranges::replace(name, '+', '-');
    if (name.size() <= longestMailboxName) return name;
    // A path that no file system could hold is told apart by its digest; "~" stands in no base64 text.
    std::array<unsigned char, SHA256_DIGEST_LENGTH> digest;
    SHA256(reinterpret_cast<const unsigned char*>(path.data()), path.size(), digest.data());
    return "~" + hexadecimal(digest);
}

/// Whether a directory holds a numbering of the mailbox, whichever: "{name}-{digits}".
bool isNumberingOf(std::string_view directory, std::string_view name) {
    if (!directory.starts_with(name)) return false;
    directory.remove_prefix(name.size());
    return directory.size() > 1 && directory.front() == '-' &&
           std::ranges::all_of(directory.substr(1), [](char c) { return text::isDigit(c); });
}

void moveDirectory(const fs::path& from, const fs::path& to) {
    std::error_code error;
    fs::rename(from, to, error);
    if (!error) return;
    if (error != std::errc::cross_device_link) throw FileError(from, error);
    // Between file systems it is copied beside its place first, so that a crash never leaves half of it there.
    auto beside = to;
    beside += ".moving";
    fs::remove_all(beside, error);
    fs::copy(from, beside, fs::copy_options::recursive, error);
    if (error) throw FileError(from, error);
    fs::rename(beside, to, error);
    if (error) throw FileError(to, error);
    fs::remove_all(from, error);
}

/// Calls `visit` with each entry of a directory; a missing or unreadable one has none.
template <class Visit>
void forEachEntry(const fs::path& directory, Visit visit) {
    std::error_code error;
    for (fs::directory_iterator entry(directory, error), end; !error && entry != end; entry.increment(error))
        visit(*entry);
}

}

MessageFiles::MessageFiles(fs::path root) : root_(std::move(root)) {}

MessageFiles::MessageFiles(fs::path root, const fs::path& formerRoot) : root_(std::move(root)) {
    std::error_code ignored;
    if (!fs::is_directory(formerRoot, ignored) || fs::exists(root_, ignored)) return;
    makePrivateDirectory(root_.parent_path());
    moveDirectory(formerRoot, root_);
}

fs::path MessageFiles::fileOf(const BodyKey& key) const {
    return root_ / key.accountID.text() / (mailboxName(key.mailboxPath) + "-" + std::to_string(key.uidValidity)) /
           (std::to_string(key.uid) + ".eml");
}

std::optional<Bytes> MessageFiles::loadBody(const BodyKey& key) const {
    try {
        return readFile(fileOf(key));
    } catch (const FileError&) {
        return std::nullopt;
    }
}

void MessageFiles::saveBody(BytesView source, const BodyKey& key) const {
    const auto file = fileOf(key);
    makePrivateDirectory(file.parent_path());
    replaceFile(file, source);
}

// --- Many at once ------------------------------------------------------------------------------------------------

/// No mailbox has a directory of this name, since it holds no dash.
fs::path MessageFiles::stagingOf(const UUID& accountID) const {
    return root_ / accountID.text() / "incoming";
}

StagedFile MessageFiles::stageBody(BytesView source, const BodyKey& key) const {
    const auto directory = stagingOf(key.accountID);
    makePrivateDirectory(directory);
    StagedFile body(fileOf(key), directory, source);
    body.close();
    return body;
}

/// A flush of each body by itself would cost more than everything else that is done with it. The contents are on the
/// disk before the first one gets its name, and the names are before anybody hears of them.
void MessageFiles::keep(std::vector<StagedFile> bodies) const {
    if (bodies.empty()) return;
    flushFileSystem(root_);
    std::set<fs::path> directories;
    for (auto& body : bodies) {
        const auto directory = body.file().parent_path();
        if (directories.insert(directory).second) makePrivateDirectory(directory);
        body.putInPlace();
    }
    for (const auto& directory : directories) flushDirectory(directory);
}

void MessageFiles::dropStaged(const UUID& accountID) const {
    std::error_code ignored;
    fs::remove_all(stagingOf(accountID), ignored);
}

// --- Removing ----------------------------------------------------------------------------------------------------

void MessageFiles::deleteBody(const BodyKey& key) const {
    std::error_code ignored;
    fs::remove(fileOf(key), ignored);
}

// --- Bodies that follow their message ----------------------------------------------------------------------------

/// No mailbox has a directory of this name, since it holds no dash.
fs::path MessageFiles::asideOf(const UUID& accountID, std::int64_t number) const {
    return root_ / accountID.text() / "aside" / (std::to_string(number) + ".eml");
}

void MessageFiles::setAside(const BodyKey& key, std::int64_t number) const {
    const auto aside = asideOf(key.accountID, number);
    std::error_code ignored;
    if (!fs::exists(fileOf(key), ignored)) return;
    try {
        makePrivateDirectory(aside.parent_path());
    } catch (const FileError&) {
        return;
    }
    fs::rename(fileOf(key), aside, ignored);
}

bool MessageFiles::adopt(const BodyKey& from, std::int64_t number, const BodyKey& to) const {
    const auto file = fileOf(to);
    std::error_code error;
    if (from == to && fs::exists(file, error)) return true;
    try {
        makePrivateDirectory(file.parent_path());
    } catch (const FileError&) {
        return false;
    }
    fs::remove(file, error);
    fs::create_hard_link(asideOf(from.accountID, number), file, error);
    if (!error) return true;
    fs::create_hard_link(fileOf(from), file, error);
    return !error;
}

void MessageFiles::dropAside(const UUID& accountID, std::int64_t number) const {
    std::error_code ignored;
    fs::remove(asideOf(accountID, number), ignored);
}

std::int64_t MessageFiles::bodyFileSize(const BodyKey& key) const {
    std::error_code error;
    const auto size = fs::file_size(fileOf(key), error);
    return error ? 0 : static_cast<std::int64_t>(size);
}

std::int64_t MessageFiles::storedBytes() const {
    constexpr std::int64_t blockSize = 512; // of st_blocks, whatever the file system's own is
    std::int64_t total = 0;
    std::error_code error;
    fs::recursive_directory_iterator entry(root_, fs::directory_options::skip_permission_denied, error);
    for (const fs::recursive_directory_iterator end; !error && entry != end; entry.increment(error)) {
        struct stat status {};
        if (::lstat(entry->path().c_str(), &status) == 0 && S_ISREG(status.st_mode))
            total += std::int64_t{status.st_blocks} * blockSize;
    }
    return total;
}

void MessageFiles::deleteBodies(const MailboxKey& mailbox, std::int64_t uidValidity) const {
    const auto directory = fileOf({mailbox.accountID, mailbox.path, uidValidity, 0}).parent_path();
    std::error_code ignored;
    forEachEntry(directory, [&](const fs::directory_entry& entry) { fs::remove(entry.path(), ignored); });
}

void MessageFiles::deleteMailbox(const MailboxKey& mailbox) const {
    const auto name = mailboxName(mailbox.path);
    std::error_code ignored;
    forEachEntry(root_ / mailbox.accountID.text(), [&](const fs::directory_entry& entry) {
        if (isNumberingOf(entry.path().filename().native(), name)) fs::remove_all(entry.path(), ignored);
    });
}

void MessageFiles::deleteAccount(const UUID& accountID) const {
    std::error_code ignored;
    fs::remove_all(root_ / accountID.text(), ignored);
}

}
