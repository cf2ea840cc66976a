#include "store/MessageLists.h"

#include "base/Text.h"
#include "platform/Log.h"
#include "store/ListRows.h"
#include "store/SampleMail.h"

#include <algorithm>
#include <utility>

namespace velmo {

namespace {

/// A conversation is counted so far.
constexpr std::size_t longestConversation = 500;

/// Messages of conversations that stand further up, passed by one page.
constexpr std::size_t mostPassed = 20'000;

/// Steps over messages that don't match, before `messages` is content with what it has.
constexpr int mostCuts = 4;

/// Messages that enter the index of texts in one commit: a few milliseconds, since others may want to write.
constexpr std::size_t indexingStep = 250;

bool isSpamOrTrash(const MailboxRecord& mailbox) {
    return mailbox.role() == MailboxRole::junk || mailbox.role() == MailboxRole::trash;
}

bool takesPart(const MailboxRecord& mailbox, const UnifiedMailbox& view) {
    switch (view.kind) {
    case UnifiedMailbox::Kind::mailbox: return mailbox.role() == view.role;
    case UnifiedMailbox::Kind::folder: return mailbox.name == view.text;
    case UnifiedMailbox::Kind::label: return !isSpamOrTrash(mailbox);
    case UnifiedMailbox::Kind::important: break;
    }
    return mailbox.role() == MailboxRole::inbox;
}

}

MessageLists::MessageLists(StoreEnvironment& environment, StoreStatus& status, MailboxDirectory& directory)
    : environment_(environment), status_(status), directory_(directory) {
    onCommit_ = environment_.context.container()->onChange([this](const ModelChanges& changes) {
        if (changes.mailboxes.empty()) return;
        search_.reset();
        if (isIndexing_) indexNewMail();
    });
}

MessageLists::~MessageLists() {
    onCommit_.disconnect();
}

// --- Sources ---------------------------------------------------------------------------------------------------

std::vector<UUID> MessageLists::accountIDs() const {
    if (environment_.isShowingSamples) return {sampleAccountID};
    std::vector<UUID> ids;
    for (const auto& account : environment_.accounts.accounts.get()) ids.push_back(account.id);
    return ids;
}

UnifiedScope MessageLists::resolve(const UnifiedMailbox& view) {
    UnifiedScope scope;
    scope.view = view;
    const bool isLabel = view.kind == UnifiedMailbox::Kind::label;
    if (isLabel) scope.label = environment_.context.labels.find(view.text);
    scope.title = title(view, scope.label);
    std::set<std::string> excluded;
    for (const auto& account : accountIDs()) {
        for (const auto& mailbox : directory_.mailboxes(account)) {
            if (takesPart(mailbox, view))
                scope.mailboxes.push_back(mailbox);
            else if (isLabel)
                excluded.insert(mailbox.path);
        }
    }
    scope.excludedPaths.assign(excluded.begin(), excluded.end());
    return scope;
}

std::optional<MessageListSource> MessageLists::mailbox(const MailboxKey& key) {
    auto record = directory_.find(key);
    if (!record) return std::nullopt;
    return MessageListSource(std::move(*record));
}

std::optional<MessageListSource> MessageLists::label(std::string_view key, const UUID& accountID) {
    auto record = environment_.context.labels.find(key);
    if (!record && key != followUpLabelKey) return std::nullopt;
    LabelSource source;
    source.label = std::move(record).value_or(LabelRecord{});
    source.label.key = key;
    if (source.label.name.empty()) source.label.name = title(UnifiedMailbox::label(source.label.key));
    source.accountID = accountID;
    for (const auto& mailbox : directory_.mailboxes(accountID)) {
        if (isSpamOrTrash(mailbox)) source.excludedPaths.push_back(mailbox.path);
    }
    return MessageListSource(std::move(source));
}

MessageListQuery MessageLists::queryOf(const MessagePageRequest& request) {
    MessageListQuery query;
    if (const auto* mailbox = std::get_if<MailboxRecord>(&request.source)) {
        query.mailboxes.push_back(mailbox->key());
    } else if (const auto* label = std::get_if<LabelSource>(&request.source)) {
        query.label = label->label.key;
        for (const auto& each : directory_.mailboxes(label->accountID)) {
            if (std::ranges::find(label->excludedPaths, each.path) == label->excludedPaths.end())
                query.mailboxes.push_back(each.key());
        }
    } else {
        const auto& scope = std::get<UnifiedScope>(request.source);
        for (const auto& each : scope.mailboxes) query.mailboxes.push_back(each.key());
        if (scope.view.kind == UnifiedMailbox::Kind::label) query.label = scope.view.text;
        if (scope.view.kind == UnifiedMailbox::Kind::important) query.focus = InboxFocus::important;
    }
    if (hasFocus(request.source)) query.focus = request.focus;
    if (request.showsUnreadOnly) query.show = MessageListQuery::Show::unread;
    query.after = request.after;
    query.limit = request.limit;
    return query;
}

// --- Pages -----------------------------------------------------------------------------------------------------

MessagePage MessageLists::page(const MessagePageRequest& request) {
    return environment_.context.snapshot([&] { return readPage(request); });
}

MessagePage MessageLists::readPage(const MessagePageRequest& request) {
    MessagePage page;
    ListRows rows(environment_.context, queryOf(request), *status_.hidden, searchOf(request));
    std::vector<std::int64_t> ids;
    while (ids.size() < request.limit) {
        const auto place = rows.next();
        if (!place) break;
        ids.push_back(place->id);
        page.next = place;
    }
    if (ids.size() < request.limit) page.next = rows.cutAt();
    page.records = environment_.context.messages.find(ids);
    for (auto& record : page.records) status_.applyShownFlags(record);
    return page;
}

ConversationPage MessageLists::conversations(const MessagePageRequest& request) {
    return environment_.context.snapshot([&] { return readConversations(request); });
}

ConversationPage MessageLists::readConversations(const MessagePageRequest& request) {
    ConversationPage page;
    auto& context = environment_.context;
    ListRows rows(context, queryOf(request), *status_.hidden, searchOf(request));
    const auto isRow = [&](const ListedMessage& message) { return rows.holds(message); };
    std::set<std::pair<UUID, std::string>> shown;
    for (std::size_t passed = 0; page.rows.size() < request.limit; ++passed) {
        const auto place = rows.next();
        if (!place || passed == mostPassed) {
            if (!place) page.next = rows.cutAt();
            return page;
        }
        page.next = place;
        const auto message = context.lists.find(place->id);
        if (!message || shown.contains({message->mailbox.accountID, message->threadKey})) continue;
        if (context.lists.hasNewerInThread(*message, isRow)) continue;
        shown.emplace(message->mailbox.accountID, message->threadKey);
        if (auto newest = context.messages.find(place->id)) {
            auto& row = page.rows.emplace_back();
            row.newest = std::move(*newest);
            status_.applyShownFlags(row.newest);
            for (const auto& each :
                 context.lists.thread(row.newest.accountID, row.newest.threadKey, longestConversation)) {
                if (!isRow(each)) continue;
                ++row.count;
                if (!each.isSeen) ++row.unread;
            }
        }
    }
    return page;
}

std::vector<MessageRecord> MessageLists::messages(const MessageListSource& source, std::string_view search,
                                                  InboxFocus focus, std::size_t limit) {
    std::vector<MessageRecord> records;
    MessagePageRequest request(source, limit);
    request.search = search;
    request.focus = focus;
    for (int cuts = 0; cuts <= mostCuts; ++cuts) {
        request.limit = limit - records.size();
        auto [found, next] = page(request);
        std::ranges::move(found, std::back_inserter(records));
        if (!next || records.size() == limit) break;
        request.after = next;
    }
    return records;
}

std::vector<MessageRecord> MessageLists::thread(const UUID& accountID, std::string_view threadKey) {
    auto records = environment_.context.messages.thread(accountID, threadKey);
    std::erase_if(records, [&](const MessageRecord& record) { return status_.hidden->contains(record.id); });
    for (auto& record : records) status_.applyShownFlags(record);
    return records;
}

std::optional<std::int64_t> MessageLists::neighbour(const MessagePageRequest& request,
                                                    const std::set<std::int64_t>& leaving) {
    return environment_.context.snapshot([&] { return findNeighbour(request, leaving); });
}

std::optional<std::int64_t> MessageLists::findNeighbour(const MessagePageRequest& request,
                                                        const std::set<std::int64_t>& leaving) {
    auto query = queryOf(request);
    query.after.reset();
    for (const auto id : leaving) {
        // One that is being read may have left a narrower list already, as an unread one does.
        const auto message = environment_.context.lists.find(id);
        if (message && std::ranges::binary_search(query.mailboxes, message->mailbox))
            query.after = std::max(query.after.value_or(message->place), message->place);
    }
    if (!query.after) return std::nullopt;
    auto left = *status_.hidden;
    left.insert(leaving.begin(), leaving.end());
    for (const auto direction : {MessageWalk::Direction::older, MessageWalk::Direction::newer}) {
        ListRows rows(environment_.context, query, left, searchOf(request), direction);
        if (const auto place = rows.next()) return place->id;
    }
    return std::nullopt;
}

// --- Search ----------------------------------------------------------------------------------------------------

/// Null when the list isn't searched. The last search is kept until mail changes: the pages of a list ask for it again.
ListSearch* MessageLists::searchOf(const MessagePageRequest& request) {
    const auto text = text::trimmedUnicode(request.search);
    if (text.empty()) return nullptr;
    const auto bodies = environment_.bodyIndex.version();
    if (!search_ || search_->text() != text || bodies != bodiesVersion_) {
        search_ = std::make_unique<ListSearch>(environment_.context, environment_.bodyIndex, text);
        bodiesVersion_ = bodies;
    }
    return search_.get();
}

void MessageLists::startIndexing() {
    if (!std::exchange(isIndexing_, true)) indexNewMail();
}

Async<void> MessageLists::stopIndexing() {
    isIndexing_ = false;
    indexing_.cancel();
    co_await indexing_.finished();
}

void MessageLists::indexNewMail() {
    hasNewMail_ = true;
    if (!indexing_.isFinished()) return;
    indexing_ = Task(environment_.executors.main, [weak = weak_from_this()]() -> Async<void> { return index(weak); });
}

/// A step at a time, so that whatever else the writer has to do gets its turn in between.
Async<void> MessageLists::index(std::weak_ptr<MessageLists> weak) {
    for (;;) {
        const auto self = weak.lock();
        if (!self) co_return;
        SyncWriter& writer = self->environment_.writer;
        try {
            if (!std::exchange(self->hasDroppedStale_, true)) {
                co_await writer.dropStaleIndex();
                continue;
            }
            self->hasNewMail_ = false;
            const std::size_t left = co_await writer.indexTexts(indexingStep);
            if (left == 0 && !self->hasNewMail_) co_return;
        } catch (const sqlite::SQLiteError& error) {
            // The next commit tries again; until then these messages are looked at one by one.
            log("Mail").error("Couldn't index new mail for the search: {}", pub(error.what()));
            co_return;
        }
    }
}

}
