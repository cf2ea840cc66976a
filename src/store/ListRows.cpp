#include "store/ListRows.h"

#include "records/Labels.h"

#include <algorithm>

namespace velmo {

namespace {

/// How many messages a page looks at without an index, and how many places it passes with one.
constexpr std::size_t mostLookedAt = 3'000;
constexpr std::size_t mostPlacesPassed = 200'000;

/// So many messages are looked up one by one. Of more, the newest are soon met on the way.
constexpr std::size_t fewCandidates = 1'000;

}

ListRows::ListRows(ModelContext& context, MessageListQuery query, const std::set<std::int64_t>& hidden,
                   ListSearch* search, MessageWalk::Direction direction)
    : context_(context),
      query_(std::move(query)),
      hidden_(hidden),
      search_(search),
      walk_(context.lists.walk(query_, direction)),
      direction_(direction),
      mostPassed_(mostPlacesPassed) {
    std::ranges::sort(query_.mailboxes);
    if (search_ != nullptr) useCandidates();
}

std::optional<MessagePlace> ListRows::next() {
    return few_ ? nextCandidate() : nextOfWalk();
}

std::optional<MessagePlace> ListRows::nextOfWalk() {
    for (;;) {
        if (passed_ == mostPassed_) {
            cutAt_ = last_;
            return std::nullopt;
        }
        const auto place = walk_.next();
        if (!place) return std::nullopt;
        ++passed_;
        last_ = place;
        if (met_ != nullptr && !std::ranges::binary_search(*met_, place->id)) continue;
        if (isShown(place->id)) return place;
    }
}

void ListRows::useCandidates() {
    const auto& candidates = search_->candidates();
    if (!candidates) {
        mostPassed_ = mostLookedAt;
    } else if (candidates->size() > fewCandidates) {
        met_ = &*candidates;
    } else {
        useFew(*candidates);
    }
}

void ListRows::useFew(const std::vector<std::int64_t>& candidates) {
    const bool isOlder = direction_ == MessageWalk::Direction::older;
    const auto comesFirst = [isOlder](const MessagePlace& a, const MessagePlace& b) { return isOlder ? b < a : a < b; };
    auto& places = few_.emplace();
    for (const auto id : candidates) {
        const auto message = context_.lists.find(id);
        const bool isBehind = message && (!query_.after || comesFirst(*query_.after, message->place));
        if (isBehind && belongs(*message)) places.push_back(message->place);
    }
    std::ranges::sort(places, [&](const auto& a, const auto& b) { return comesFirst(b, a); });
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
