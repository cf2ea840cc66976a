#pragma once

#include "base/Async.h"
#include "base/UUID.h"
#include "store/StoreEnvironment.h"

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>

namespace velmo {

/// The setting with the date up to which the bodies of an account are left on the server.
std::string bodyCutoffKey(const UUID& accountID);

/// The room on the disk for the bodies of all accounts. Lives on the main executor; files are counted and deleted on
/// the background executor.
class BodyBudget {
  public:
    /// In bytes: above `mostStored` the oldest bodies go, until `storedAfterEviction` are left.
    BodyBudget(StoreEnvironment& environment, std::int64_t mostStored, std::int64_t storedAfterEviction)
        : environment_(environment), mostStored_(mostStored), storedAfterEviction_(storedAfterEviction) {}

    /// A body file of so many bytes has been written.
    void add(std::int64_t bytes);

    /// Counts the files at the first call and before it says yes; goes by what was added otherwise.
    Async<bool> isExceeded();

    /// Deletes the oldest bodies, at most `evictedAtOnce`, and moves the cut-off date of each account behind those that
    /// went. Does nothing while it is at work already. Throws what the store throws.
    Async<void> evict();

    static constexpr std::size_t evictedAtOnce = 5'000;

  private:
    Async<void> count();
    Async<void> evictOldest();
    std::int64_t deleteFiles(std::span<const BodyRow>& rows, std::int64_t excess) const;
    Async<void> recordEvicted(std::span<const BodyRow> rows);
    void raiseCutoff(const UUID& accountID, Date date);

    StoreEnvironment& environment_;
    std::int64_t mostStored_;
    std::int64_t storedAfterEviction_;
    std::optional<std::int64_t> stored_; ///< as counted, and what was added and evicted since
    bool isEvicting_ = false;
};

}
