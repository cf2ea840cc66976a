#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace velmo {

/// The boundaries of the multiparts that are open at one place of a message (RFC 2046 §5.1), the innermost last.
///
/// Answers for a line which of them it begins with, in time that depends on the line and not on their number: the
/// boundaries are paths of one tree of characters.
class BoundarySet {
  public:
    struct Match {
        std::size_t owner;  ///< of the outermost boundary that the line begins with
        std::size_t length; ///< of that boundary
    };

    bool empty() const { return added_.empty(); }

    /// False when an open boundary is a prefix of this one: no line would ever be its. Then there is nothing to remove.
    bool push(std::string_view boundary, std::size_t owner);

    /// Removes the boundary that was added last.
    void pop();

    /// `line` begins behind the "--" of a delimiter line.
    std::optional<Match> match(std::string_view line) const;

  private:
    using Index = std::uint32_t;
    static constexpr Index none = 0xFFFF'FFFF;

    struct Node {
        Index firstChild = none;
        Index nextSibling = none;
        Index owner = none;
        char character = 0;
    };
    /// What a push changed, so that a pop can take it back.
    struct Addition {
        Index end;      // the node of the last character
        Index parent;   // the last node that was there before
        Index newNodes; // the first node that was not
    };

    Index child(Index node, char character) const;

    std::vector<Node> nodes_{Node{}};
    std::vector<Addition> added_;
};

}
