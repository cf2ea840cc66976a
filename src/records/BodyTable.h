#pragma once

#include "records/MessageFiles.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace velmo {

class StoreConnection;

/// What those who keep bodies need of a message.
struct BodyRow {
    std::int64_t id = 0;
    BodyKey key;
    std::optional<std::string> messageID; ///< as sent, with its angle brackets
    Date date;
    std::int64_t size = 0; ///< bytes on the server
};

/// Which messages have their body in the files. Part of a ModelContext.
class BodyTable {
  public:
    explicit BodyTable(StoreConnection& connection) : connection_(connection) {}

    /// Which bodies are missed.
    struct Missing {
        Missing(UUID accountID_, std::vector<std::string> paths_, std::optional<Date> youngerThan_ = {})
            : accountID(accountID_), paths(std::move(paths_)), youngerThan(youngerThan_) {}

        UUID accountID;
        std::vector<std::string> paths; ///< of mailboxes
        std::optional<Date> youngerThan;
    };

    /// The newest of them, newest first.
    std::vector<BodyRow> missing(const Missing& query, std::size_t limit);

    /// Reads no rows of messages.
    std::int64_t missingCount(const Missing& query);

    /// Messages of the account with their body. Reads no rows of messages.
    std::int64_t heldCount(const UUID& accountID);

    /// Messages of the account with their body and an id above `after`, by rising id: a walk in steps.
    std::vector<BodyRow> held(const UUID& accountID, std::int64_t after, std::size_t limit);

    /// Messages of all accounts with their body, oldest first.
    std::vector<BodyRow> oldestHeld(std::size_t limit);

    /// What has become known of a body.
    struct Outcome {
        bool hasBody = false;
        std::optional<std::string> snippet; ///< absent: as it is
    };

    /// Writes it, what differs. False when the message is gone, or no longer has this place.
    bool record(const BodyRow& row, const Outcome& outcome);

  private:
    StoreConnection& connection_;
};

}
