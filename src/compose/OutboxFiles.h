#pragma once

#include "compose/OutboxItem.h"

#include <filesystem>
#include <vector>

namespace velmo {

/// The files of the outbox: one for each item, "{UUID}.json". Any thread; whoever uses it keeps the order of his own
/// operations. With an empty folder nothing is kept. Throws FileError.
class OutboxFiles {
  public:
    explicit OutboxFiles(std::filesystem::path folder) : folder_(std::move(folder)) {}

    struct Found {
        std::vector<OutboxItem> items; ///< by the time at which they are to be sent
        /// Files that could not be read as an item, under the names that they have now.
        std::vector<std::filesystem::path> setAside;
    };
    /// Reads them all. A damaged one is renamed, so that it keeps nothing else from being sent and is not lost.
    Found load() const;

    /// The disk has it when this returns, with the folder where that was missing.
    void write(const OutboxItem& item) const;

    /// The disk has let go of it when this returns: an item that was sent or taken back must not come back after a
    /// power cut. Does nothing without a file.
    void remove(const UUID& id) const;

  private:
    std::filesystem::path fileOf(const UUID& id) const;

    std::filesystem::path folder_;
};

}
