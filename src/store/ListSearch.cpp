#include "store/ListSearch.h"

#include <algorithm>

namespace velmo {

namespace {

/// How many messages that are not indexed yet are looked at.
constexpr std::size_t mostUnindexed = 3'000;

}

ListSearch::ListSearch(ModelContext& context, BodyIndex& bodies, std::string_view text)
    : context_(context), text_(text), terms_(text) {
    if (terms_.isEmpty()) return;
    messageIDs_ = bodies.search(text);
    bodies_.insert(messageIDs_.begin(), messageIDs_.end());
}

bool ListSearch::matches(std::int64_t id) {
    if (terms_.isEmpty()) return false;
    std::string messageID;
    return context_.texts.matches(id, terms_, messageID) || (!messageID.empty() && bodies_.contains(messageID));
}

const std::optional<std::vector<std::int64_t>>& ListSearch::candidates() {
    if (std::exchange(hasCandidates_, true)) return candidates_;
    candidates_ = terms_.isEmpty() ? std::vector<std::int64_t>() : context_.texts.search(terms_);
    if (!candidates_ || terms_.isEmpty()) return candidates_;
    auto& all = *candidates_;
    for (const auto id : context_.lists.idsOf(messageIDs_)) all.push_back(id);
    for (const auto id : context_.texts.unindexed(mostUnindexed)) all.push_back(id);
    std::ranges::sort(all);
    all.erase(std::unique(all.begin(), all.end()), all.end());
    return candidates_;
}

}
