#pragma once

#include "platform/SearchWords.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace velmo {

class StoreConnection;

/// The senders, subjects and previews of messages, and a full-text index over them. Part of a ModelContext.
///
/// New messages enter the index after they are stored, in steps of their own: storing them costs nothing more, and a
/// search reads the few that are not in it yet one by one. Deleted messages stay in it until enough of them are gone
/// to make it anew; whoever searches looks at the messages that are found.
class TextTable {
  public:
    explicit TextTable(StoreConnection& connection) : connection_(connection) {}

    /// Whether the texts of a message hold all the words. False when it is gone.
    bool matches(std::int64_t id, const SearchTerms& terms);
    /// The same; `messageID` is set to the message's own when they don't.
    bool matches(std::int64_t id, const SearchTerms& terms, std::string& messageID);

    /// The indexed messages that can hold all the words; a superset, by rising id. Absent when there are more than
    /// `limit`, or all words are so short that about every message holds them.
    std::optional<std::vector<std::int64_t>> search(const SearchTerms& terms, std::size_t limit);

    /// The messages that are not in the index, newest first.
    std::vector<std::int64_t> unindexed(std::size_t limit);

    /// Takes up to this many of them into the index, in one commit. Gives how many were left; 0: the index is complete.
    std::size_t indexNext(std::size_t limit);

    /// Makes the index anew, step by step from now on, when most of what it holds is gone.
    void dropStaleIndex();

  private:
    StoreConnection& connection_;
};

}
