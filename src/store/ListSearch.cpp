#include "store/ListSearch.h"

#include <algorithm>

namespace velmo {

namespace {

/// So many messages that are not indexed yet are looked at one by one. With more of them, a list does as well to look
/// at its own.
constexpr std::size_t mostUnindexed = 3'000;

/// A word that more messages hold fills a page with the newest of them, before an index would have named them all.
constexpr std::size_t mostTexts = 6'000;

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
    if (hasCandidates_) return candidates_;
    const auto unindexed = context_.texts.unindexed(mostUnindexed + 1);
    if (unindexed.size() > mostUnindexed) return candidates_;
    hasCandidates_ = true;
    candidates_ = terms_.isEmpty() ? std::vector<std::int64_t>() : context_.texts.search(terms_, mostTexts);
    if (!candidates_ || terms_.isEmpty()) return candidates_;
    auto& all = *candidates_;
    for (const auto id : context_.lists.idsOf(messageIDs_)) all.push_back(id);
    all.insert(all.end(), unindexed.begin(), unindexed.end());
    std::ranges::sort(all);
    all.erase(std::unique(all.begin(), all.end()), all.end());
    return candidates_;
}

}
