#pragma once

#include "base/Bytes.h"
#include "base/UUID.h"
#include "platform/StagedFile.h"
#include "records/MessageRecord.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace velmo {

/// Names the body of one message under one numbering of its mailbox.
struct BodyKey {
    UUID accountID;
    std::string mailboxPath;
    std::int64_t uidValidity = 0;
    std::int64_t uid = 0;

    static BodyKey of(const MessageRecord& record) {
        return {record.accountID, record.mailboxPath, record.uidValidity, record.uid};
    }
    friend bool operator==(const BodyKey&, const BodyKey&) = default;
};

/// The complete sources of messages (RFC 5322), one file each:
/// {root}/{account}/{mailbox in base64}-{uidValidity}/{uid}.eml. Directories are 0700, files 0600.
///
/// Operations block for the disk, and may be called from any thread.
class MessageFiles {
  public:
    explicit MessageFiles(std::filesystem::path root);

    /// Moves the files of an older installation to `root` when they are still at `formerRoot` and nothing stands at
    /// `root`. Throws FileError.
    MessageFiles(std::filesystem::path root, const std::filesystem::path& formerRoot);

    /// Absent when there is none, or it can't be read.
    std::optional<Bytes> loadBody(const BodyKey& key) const;

    /// Replaces the file as a whole. Throws FileError.
    void saveBody(BytesView source, const BodyKey& key) const;

    /// Writes a body beside all others, so that `keep` makes it the file, with many at once. Throws FileError.
    StagedFile stageBody(BytesView source, const BodyKey& key) const;

    /// Makes staged bodies the files, with one wait for the disk: after a crash at any moment each of them is there
    /// whole or not at all. Throws FileError, when some may be there already.
    void keep(std::vector<StagedFile> bodies) const;

    /// Removes what a crash left staged for an account; not while bodies are being staged for it. A failure is ignored.
    void dropStaged(const UUID& accountID) const;

    /// A failure is ignored.
    void deleteBody(const BodyKey& key) const;

    /// Puts the body of a message that has left its mailbox aside, under a number that nobody else has. A failure is
    /// ignored.
    void setAside(const BodyKey& key, std::int64_t number) const;

    /// Gives a message the body of another record of it: the one that was set aside under this number (0: none), or
    /// else the one of `from`, which keep it too. False when there is none.
    bool adopt(const BodyKey& from, std::int64_t number, const BodyKey& to) const;

    /// A failure is ignored.
    void dropAside(const UUID& accountID, std::int64_t number) const;

    /// Bytes; 0 when there is none.
    std::int64_t bodyFileSize(const BodyKey& key) const;

    /// Bytes that all bodies take on the disk.
    std::int64_t storedBytes() const;

    /// Removes the bodies of one numbering of a mailbox; the directory stays. A failure is ignored.
    void deleteBodies(const MailboxKey& mailbox, std::int64_t uidValidity) const;

    /// Removes everything of a mailbox that is no more, or of an account. A failure is ignored.
    void deleteMailbox(const MailboxKey& mailbox) const;
    void deleteAccount(const UUID& accountID) const;

    std::filesystem::path fileOf(const BodyKey& key) const;

  private:
    std::filesystem::path asideOf(const UUID& accountID, std::int64_t number) const;
    std::filesystem::path stagingOf(const UUID& accountID) const;

    std::filesystem::path root_;
};

}
