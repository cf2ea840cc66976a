#pragma once

#include "base/Date.h"
#include "base/Observed.h"
#include "base/UUID.h"
#include "records/MessageRecord.h"
#include "records/UnsentFlagTable.h"

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>

namespace velmo {

/// How the sync of an account stands.
struct SyncStatus {
    enum class Kind { idle, syncing, failed };

    static SyncStatus idle() { return {}; }
    static SyncStatus syncing();
    /// `text` is a sentence for the person.
    static SyncStatus failed(std::string text);

    Kind kind = Kind::idle;
    std::string text;

    friend bool operator==(const SyncStatus&, const SyncStatus&) = default;
};

/// The one transient message line of the application.
struct Banner {
    UUID id;
    std::string text;
    bool canUndo = false; ///< the line offers to undo the pending action
    bool isError = false;
    std::optional<UUID> outboxID;                 ///< the line offers to take back a send that was just queued
    std::optional<std::chrono::seconds> lifetime; ///< absent: the front end's own

    friend bool operator==(const Banner&, const Banner&) = default;
};

/// Flags that are shown before they are stored.
struct ShownFlags {
    std::optional<bool> isSeen;
    std::optional<bool> isFlagged;

    friend bool operator==(const ShownFlags&, const ShownFlags&) = default;
};

/// What the mail store tells about its work: for the footer, the message line, and lists that must leave messages out.
/// Lives on the main executor.
class StoreStatus {
  public:
    /// An account without an entry is idle.
    Observed<std::map<UUID, SyncStatus>> accounts;
    /// End of the last complete pass or inbox check.
    Observed<std::map<UUID, Date>> lastChecked;
    Observed<std::optional<Banner>> banner;
    /// Messages that are about to leave their mailbox: they are in the store, and no list shows them.
    Observed<std::set<std::int64_t>> hidden;

    /// Flags that were changed while the store was busy, by message.
    Observed<std::map<std::int64_t, ShownFlags>> shownFlags;

    SyncStatus of(const UUID& accountID) const;
    void set(const UUID& accountID, SyncStatus status);
    void setChecked(const UUID& accountID, Date date);

    /// Replaces the line that is showing.
    void showUndo(std::string text);
    void showError(std::string text);
    /// Takes away a line that offers to undo the pending action.
    void clearUndo();

    void hide(const std::set<std::int64_t>& messages);
    void show(const std::set<std::int64_t>& messages);

    /// A flag has this value wherever it is shown, until `endShowing` is told the same.
    void showFlag(const std::vector<std::int64_t>& messages, PersonalFlag flag, bool value);
    void endShowing(const std::vector<std::int64_t>& messages, PersonalFlag flag, bool value);
    /// Gives the record the flags that are shown.
    void applyShownFlags(MessageRecord& record) const;

    /// Forgets an account.
    void remove(const UUID& accountID);
};

}
