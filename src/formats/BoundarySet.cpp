#include "formats/BoundarySet.h"

namespace velmo {

BoundarySet::Index BoundarySet::child(Index node, char character) const {
    Index at = nodes_[node].firstChild;
    while (at != none && nodes_[at].character != character) at = nodes_[at].nextSibling;
    return at;
}

bool BoundarySet::push(std::string_view boundary, std::size_t owner) {
    if (match(boundary)) return false;
    Index node = 0;
    std::size_t known = 0;
    for (Index next; known < boundary.size() && (next = child(node, boundary[known])) != none; ++known) node = next;
    Addition addition{node, node, static_cast<Index>(nodes_.size())};
    for (const char c : boundary.substr(known)) {
        const auto added = static_cast<Index>(nodes_.size());
        nodes_.push_back(Node{none, nodes_[addition.end].firstChild, none, c});
        nodes_[addition.end].firstChild = added;
        addition.end = added;
    }
    nodes_[addition.end].owner = static_cast<Index>(owner);
    added_.push_back(addition);
    return true;
}

void BoundarySet::pop() {
    const Addition last = added_.back();
    added_.pop_back();
    nodes_[last.end].owner = none;
    if (last.newNodes == nodes_.size()) return;
    // Its new nodes hang at the front of one list, since all boundaries that came later are gone.
    nodes_[last.parent].firstChild = nodes_[last.newNodes].nextSibling;
    nodes_.resize(last.newNodes);
}

std::optional<BoundarySet::Match> BoundarySet::match(std::string_view line) const {
    std::optional<Match> found;
    Index node = 0;
    // No boundary has an outer one as its prefix, so the longest that fits is the outermost.
    for (std::size_t length = 0; node != none; ++length) {
        if (nodes_[node].owner != none) found = Match{nodes_[node].owner, length};
        if (length == line.size()) break;
        node = child(node, line[length]);
    }
    return found;
}

}
