#include "records/MessageWalk.h"

#include "records/Labels.h"
#include "records/StoreConnection.h"

#include <algorithm>

namespace velmo {

namespace {

constexpr std::size_t smallestStep = 4;
constexpr std::size_t largestStep = 512;

/// The index that holds a list in its order, and the columns of it in front of the date. The literal conditions are
/// those of the partial indexes, or SQLite could not use these.
std::string_view indexAndCondition(const MessageListQuery& query) {
    if (query.label) return "labelledMessages WHERE labelsJoined <> '' AND labelsJoined = ? AND isSeen = ? ";
    switch (query.show) {
    case MessageListQuery::Show::all: break;
    case MessageListQuery::Show::unread: return "unreadMessages WHERE isSeen = 0 AND isOther = ? ";
    case MessageListQuery::Show::withoutBody: return "messagesWithoutBody WHERE hasBody = 0 AND hasBody = ? ";
    }
    return "messagesByDate WHERE isOther = ? ";
}

// A mailbox has few combinations of labels, and the index knows them without the messages that carry them.
constexpr std::string_view labelCombinations =
    "WITH RECURSIVE found(labels) AS ("
    "SELECT min(labelsJoined) FROM messages WHERE accountID = ?1 AND mailboxPath = ?2 AND labelsJoined <> '' "
    "UNION ALL SELECT (SELECT min(labelsJoined) FROM messages WHERE accountID = ?1 AND mailboxPath = ?2 "
    "AND labelsJoined <> '' AND labelsJoined > found.labels) FROM found WHERE found.labels IS NOT NULL) "
    "SELECT labels FROM found WHERE labels IS NOT NULL";

}

MessageWalk::MessageWalk(StoreConnection& connection, const MessageListQuery& query, Direction direction)
    : connection_(connection), query_(query), direction_(direction) {
    const bool isOlder = direction == Direction::older;
    sameDate_ =
        sql(isOlder ? "date = ? AND id < ? ORDER BY id DESC LIMIT ?" : "date = ? AND id > ? ORDER BY id LIMIT ?");
    beyond_ = sql(isOlder ? "date < ? AND date >= ? ORDER BY date DESC, id DESC LIMIT ?"
                          : "date > ? AND date >= ? ORDER BY date, id LIMIT ?");
    auto& mailboxes = query_.mailboxes;
    std::ranges::sort(mailboxes);
    mailboxes.erase(std::unique(mailboxes.begin(), mailboxes.end()), mailboxes.end());
    for (const auto& mailbox : mailboxes) addStreams(mailbox);
    // The rows of a page are spread over the streams; a stream that has more of them is read on in larger steps.
    if (streams_.empty()) return;
    step_ = std::clamp(query_.limit * 2 / streams_.size(), smallestStep, std::max(smallestStep, query_.limit));
    step_ = std::min(step_, largestStep);
    for (std::size_t i = 0; i < streams_.size(); ++i) push(i);
}

void MessageWalk::addStreams(const MailboxKey& mailbox) {
    if (query_.label) {
        addLabelStreams(mailbox);
        return;
    }
    const auto add = [&](std::int64_t half) {
        auto& stream = streams_.emplace_back();
        stream.mailbox = &mailbox;
        stream.half = half;
    };
    if (query_.show == MessageListQuery::Show::withoutBody) {
        add(0);
        return;
    }
    if (query_.focus != InboxFocus::other) add(0);
    if (query_.focus != InboxFocus::important) add(1);
}

void MessageWalk::addLabelStreams(const MailboxKey& mailbox) {
    auto row = connection_.query(labelCombinations);
    row.bind(mailbox.accountID, mailbox.path);
    while (row.step()) {
        const auto labels = row.column<std::string>(0);
        if (!hasLabel(labels, *query_.label)) continue;
        for (const std::int64_t isSeen : {0, 1}) {
            if (isSeen != 0 && query_.show == MessageListQuery::Show::unread) continue;
            auto& stream = streams_.emplace_back();
            stream.mailbox = &mailbox;
            stream.half = isSeen;
            stream.labels = labels;
        }
    }
}

std::string MessageWalk::sql(std::string_view range) const {
    return "SELECT date, id FROM messages INDEXED BY " + std::string(indexAndCondition(query_)) +
           "AND accountID = ? AND mailboxPath = ? AND " + std::string(range);
}

std::optional<MessagePlace> MessageWalk::next() {
    if (heads_.empty()) return std::nullopt;
    const bool isOlder = direction_ == Direction::older;
    const auto comesLater = [isOlder](const Head& a, const Head& b) {
        return isOlder ? a.place < b.place : b.place < a.place;
    };
    std::ranges::pop_heap(heads_, comesLater);
    const auto [place, stream] = heads_.back();
    heads_.pop_back();
    push(stream);
    return place;
}

/// Puts the next place of the stream among the heads.
void MessageWalk::push(std::size_t index) {
    auto& stream = streams_[index];
    if (stream.places.empty() && !stream.isRead) fill(stream);
    if (stream.places.empty()) return;
    const bool isOlder = direction_ == Direction::older;
    heads_.push_back({stream.places.back(), index});
    stream.places.pop_back();
    std::ranges::push_heap(
        heads_, [isOlder](const Head& a, const Head& b) { return isOlder ? a.place < b.place : b.place < a.place; });
}

void MessageWalk::fill(Stream& stream) {
    const bool isOlder = direction_ == Direction::older;
    const Date since = query_.since.value_or(Date::min());
    const std::size_t rows = stream.last ? std::min(step_ * 4, largestStep) : step_;
    const auto from = stream.last ? stream.last : query_.after;
    if (from && from->date >= since) read(stream, sameDate_, rows, from->date, from->id);
    if (stream.places.size() < rows) {
        const Date start = isOlder ? Date::max() : Date::min();
        read(stream, beyond_, rows - stream.places.size(), from ? from->date : start, unixMilliseconds(since));
        stream.isRead = stream.places.size() < rows;
    }
    if (!stream.places.empty()) stream.last = stream.places.back();
    std::ranges::reverse(stream.places);
}

void MessageWalk::read(Stream& stream, std::string_view sql, std::size_t rows, Date date, std::int64_t bound) {
    auto row = connection_.query(sql);
    const auto& [account, path] = *stream.mailbox;
    const auto limit = static_cast<std::int64_t>(rows);
    if (query_.label)
        row.bind(stream.labels, stream.half, account, path, date, bound, limit);
    else
        row.bind(stream.half, account, path, date, bound, limit);
    while (row.step()) {
        auto& place = stream.places.emplace_back();
        row.read(place.date, place.id);
    }
}

}
