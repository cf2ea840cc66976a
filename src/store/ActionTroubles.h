#pragma once

#include "store/MessageGroups.h"
#include "store/ServerCommands.h"
#include "store/StoreEnvironment.h"

#include <cstdint>
#include <optional>
#include <set>
#include <string>

namespace velmo {

/// What was done to messages, and did not come about on the server: kept for the person, who may have looked away.
/// Lives on the main executor.
class ActionTroubles {
  public:
    enum class Action { seen, flagged, moved, deleted };

    /// The environment outlives this.
    explicit ActionTroubles(StoreEnvironment& environment) : environment_(environment) {}

    /// The outcome has failed.
    void add(Action action, const MessageGroup& group, const CommandOutcome& outcome);

    /// It has come about since.
    void settle(Action action, const MessageGroup& group);

    /// What stands of these messages, in one text, for somebody who tells the person: it stands no more.
    std::optional<std::string> take(const std::set<std::int64_t>& ids);

  private:
    std::string subjectOf(const MessageGroup& group) const;

    StoreEnvironment& environment_;
};

}
