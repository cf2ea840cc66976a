#pragma once

#include "records/ModelContext.h"
#include "store/ListSearch.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <set>
#include <vector>

namespace velmo {

/// The rows of a list as places, one by one, and whether a message is one of them.
class ListRows {
  public:
    /// Reads by `query`, leaves `hidden` out, and keeps what `search` (which may be null) matches. All but the query
    /// outlive this.
    ListRows(ModelContext& context, MessageListQuery query, const std::set<std::int64_t>& hidden, ListSearch* search,
             MessageWalk::Direction direction = MessageWalk::Direction::older);

    /// The next row; absent behind the last, and when too many messages that don't match were passed.
    std::optional<MessagePlace> next();

    /// Where the rows go on after a walk that was cut; absent when it was not.
    const std::optional<MessagePlace>& cutAt() const { return cutAt_; }

    bool holds(const ListedMessage& message) const;

  private:
    std::optional<MessagePlace> nextOfWalk();
    std::optional<MessagePlace> nextCandidate();
    void useCandidates();
    void useFew(const std::vector<std::int64_t>& candidates);
    bool belongs(const ListedMessage& message) const;
    bool isShown(std::int64_t id) const;

    ModelContext& context_;
    MessageListQuery query_;
    const std::set<std::int64_t>& hidden_;
    ListSearch* search_;
    MessageWalk walk_;
    MessageWalk::Direction direction_;
    std::size_t passed_ = 0;           ///< messages that the walk has seen
    std::size_t mostPassed_;           ///< where it is cut
    std::optional<MessagePlace> last_; ///< the last one that the walk has seen
    std::optional<MessagePlace> cutAt_;
    /// The messages that the index of texts gives: all of them, by rising id, to be met on the walk ...
    const std::vector<std::int64_t>* met_ = nullptr;
    /// ... or, when they are few, those of this list, the next one last.
    std::optional<std::vector<MessagePlace>> few_;
};

}
