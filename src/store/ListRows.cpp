#include "store/ListRows.h"

#include "records/Labels.h"

#include <algorithm>

namespace velmo {

namespace {

/// A search looks at so many of the newest messages itself. A word that many messages hold fills a page with them, and
/// an index would first have to name all the others.
constexpr std::size_t messagesBeforeIndex = 1'500;

/// How many messages a page looks at without an index, and how many places it passes with one.
constexpr std::size_t mostLookedAt = 3'000;
constexpr std::size_t mostPlacesPassed = 200'000;

/// So many messages are looked up one by one rather than met on the way.
constexpr std::size_t fewCandidates = 4'000;

}

ListRows::ListRows(ModelContext& context, MessageListQuery query, const std::set<std::int64_t>& hidden,
                   ListSearch* search, MessageWalk::Direction direction)
    : context_(context),
      query_(std::move(query)),
      hidden_(hidden),
      search_(search),
      walk_(context.lists.walk(query_, direction)),
      direction_(direction),
      mostPassed_(search != nullptr ? messagesBeforeIndex : mostPlacesPassed) {
    std::ranges::sort(query_.mailboxes);
}

std::optional<MessagePlace> ListRows::next() {
    return few_ ? nextCandidate() : nextOfWalk();
}

std::optional<MessagePlace> ListRows::nextOfWalk() {
    for (;;) {
        if (passed_ == mostPassed_) {
            if (search_ == nullptr || mostPassed_ != messagesBeforeIndex) {
                cutAt_ = last_;
                return std::nullopt;
            }
            useCandidates();
            if (few_) return nextCandidate();
        }
        const auto place = walk_.next();
        if (!place) return std::nullopt;
        ++passed_;
        last_ = place;
        if (met_ != nullptr && !std::ranges::binary_search(*met_, place->id)) continue;
        if (isShown(place->id)) return place;
    }
}

/// The walk has met too few: the index says where the others are.
void ListRows::useCandidates() {
    mostPassed_ = mostLookedAt;
    if (direction_ == MessageWalk::Direction::newer) return;
    const auto& candidates = search_->candidates();
    if (!candidates) return;
    if (candidates->size() > fewCandidates) {
        mostPassed_ = mostPlacesPassed;
        met_ = &*candidates;
        return;
    }
    auto& places = few_.emplace();
    for (const auto id : *candidates) {
        const auto message = context_.lists.find(id);
        if (message && message->place < *last_ && belongs(*message)) places.push_back(message->place);
    }
    std::ranges::sort(places);
}

std::optional<MessagePlace> ListRows::nextCandidate() {
    while (!few_->empty()) {
        const auto place = few_->back();
        few_->pop_back();
        if (isShown(place.id)) return place;
    }
    return std::nullopt;
}

bool ListRows::isShown(std::int64_t id) const {
    return !hidden_.contains(id) && (search_ == nullptr || search_->matches(id));
}

bool ListRows::belongs(const ListedMessage& message) const {
    if (query_.show == MessageListQuery::Show::unread && message.isSeen) return false;
    if (query_.label) {
        if (!hasLabel(message.labelsJoined, *query_.label)) return false;
    } else if (query_.focus != InboxFocus::all && message.isOther != (query_.focus == InboxFocus::other)) {
        return false;
    }
    return std::ranges::binary_search(query_.mailboxes, message.mailbox);
}

bool ListRows::holds(const ListedMessage& message) const {
    return belongs(message) && isShown(message.place.id);
}

}
