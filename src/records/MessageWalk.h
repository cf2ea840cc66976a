#pragma once

#include "records/MessageTable.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace velmo {

class StoreConnection;

/// Goes through the places of a list one by one, over all its mailboxes together, and reads nothing but the indexes
/// that hold these places in their order: a mailbox is read as far as the walk gets, never whole.
///
/// No snapshot is kept between two steps; a message that comes or goes meanwhile may be seen or not.
class MessageWalk {
  public:
    enum class Direction { older, newer };

    /// `limit` of the query is how far the walk is likely to get. A walk to newer messages goes from the oldest one or
    /// from `after` upwards.
    MessageWalk(StoreConnection& connection, const MessageListQuery& query, Direction direction = Direction::older);

    MessageWalk(MessageWalk&&) = default;
    MessageWalk& operator=(MessageWalk&&) = delete;

    /// Absent behind the last.
    std::optional<MessagePlace> next();

  private:
    /// A part of a mailbox that one index holds in the order of the list.
    struct Stream {
        const MailboxKey* mailbox = nullptr;
        std::int64_t half = 0;            ///< a mailbox is divided in two: by isOther, with labels by isSeen
        std::string labels;               ///< one combination of labels, when the list is one of a label
        std::vector<MessagePlace> places; ///< read ahead, the next one last
        std::optional<MessagePlace> last; ///< the last one that was read
        bool isRead = false;              ///< nothing is left in the store
    };
    struct Head {
        MessagePlace place;
        std::size_t stream = 0;
    };

    void addStreams(const MailboxKey& mailbox);
    void addLabelStreams(const MailboxKey& mailbox);
    std::string sql(std::string_view range) const;
    void fill(Stream& stream);
    void read(Stream& stream, std::string_view sql, std::size_t rows, Date date, std::int64_t bound);
    void push(std::size_t stream);

    StoreConnection& connection_;
    MessageListQuery query_;
    Direction direction_;
    std::string sameDate_;
    std::string beyond_;
    std::size_t step_ = 0; ///< rows that are read at once
    std::vector<Stream> streams_;
    std::vector<Head> heads_; ///< a heap
};

}
