#pragma once

#include "base/Bytes.h"
#include "compose/OutboxItem.h"

#include <filesystem>
#include <optional>
#include <vector>

namespace velmo {

/// The files of the outbox, one for each item, named by its UUID and how far it is:
///
/// - ".json": it waits to be sent;
/// - ".taken": it was taken back, and what became of it is not safe yet;
/// - ".sent": the server has it, and it is still to be filed.
///
/// Beside one that waits, or was sent, the bytes that are handed to the server may lie in ".eml".
///
/// An item goes from one to the next by being renamed, so that it is never in two of them and never in none. Any
/// thread; whoever uses it keeps the order of his own operations. With an empty folder nothing is kept. Throws
/// FileError; the disk has what was done when an operation returns.
class OutboxFiles {
  public:
    explicit OutboxFiles(std::filesystem::path folder) : folder_(std::move(folder)) {}

    /// False with an empty folder.
    bool keepsAnything() const { return !folder_.empty(); }

    struct Found {
        std::vector<OutboxItem> waiting; ///< by the time at which they are to be sent
        std::vector<OutboxItem> taken;
        std::vector<OutboxItem> sent;
        /// Files that could not be read as an item, under the names that they have now.
        std::vector<std::filesystem::path> setAside;
    };
    /// Reads them all. A damaged one is renamed, so that it keeps nothing else from being sent and is not lost; one
    /// that can't be read now keeps its name.
    Found load() const;

    /// Writes an item that waits, with the folder where that was missing. One of its ID that was taken back is over.
    void write(const OutboxItem& item) const;
    /// Writes one as though it had been taken back.
    void writeTaken(const OutboxItem& item) const;

    /// Keeps the bytes of a message that is about to be handed to the server, gives them again (absent when there are
    /// none), and lets go of them.
    void keepMessage(const UUID& id, BytesView message) const;
    std::optional<Bytes> message(const UUID& id) const;
    void dropMessage(const UUID& id) const;

    /// An item that waited has been sent, or taken back. Nothing happens without its file.
    void noteSent(const UUID& id) const;
    void noteTaken(const UUID& id) const;

    /// Removes an item that waits. Does nothing without its file, nor do the next two.
    void remove(const UUID& id) const;
    /// Removes one that was taken back.
    void removeTaken(const UUID& id) const;
    /// Removes one that was sent, and its bytes.
    void removeSent(const UUID& id) const;

  private:
    std::filesystem::path fileOf(const UUID& id, std::string_view ending) const;
    void rename(const UUID& id, std::string_view ending) const;
    void removeFiles(const UUID& id, std::initializer_list<std::string_view> endings) const;
    void dropForgotten(const Found& found) const;

    std::filesystem::path folder_;
};

}
