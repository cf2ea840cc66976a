#include "store/Selection.h"

#include "records/ModelContext.h"

#include <algorithm>

namespace velmo {

namespace {

/// Nobody goes back further; beyond it the oldest is forgotten.
constexpr std::size_t longestHistory = 500;

/// Sets a flag for the length of a step.
class Moving {
  public:
    explicit Moving(Observed<bool>& flag) : flag_(flag) { flag_ = true; }
    ~Moving() { flag_ = false; }
    Moving(const Moving&) = delete;
    Moving& operator=(const Moving&) = delete;

  private:
    Observed<bool>& flag_;
};

}

// --- Choosing a list -------------------------------------------------------------------------------------------

void Selection::selectMailbox(const std::string& path, const UUID& account, Sync sync) {
    unified = std::optional<UnifiedMailbox>();
    mailboxes.update([&](auto& all) { all[account] = path; });
    labels.update([&](auto& all) { all.erase(account); });
    show(account, std::nullopt);
    if (sync == Sync::yes && syncMailbox) syncMailbox({account, path});
}

void Selection::selectLabel(const std::string& key, const UUID& account) {
    unified = std::optional<UnifiedMailbox>();
    labels.update([&](auto& all) { all[account] = key; });
    mailboxes.update([&](auto& all) { all.erase(account); });
    show(account, std::nullopt);
}

void Selection::selectUnified(const UnifiedMailbox& view) {
    show(std::nullopt, view);
}

void Selection::show(std::optional<UUID> account, std::optional<UnifiedMailbox> view) {
    unified = std::move(view);
    accountID = account;
    messages = std::set<std::int64_t>();
    isReaderOpen = false;
}

void Selection::selectMessages(const std::set<std::int64_t>& ids) {
    messages = ids;
}

std::optional<MessagePageRequest> Selection::currentList() {
    std::optional<MessageListSource> source;
    if (*unified) {
        source = lists_.resolve(**unified);
    } else if (*accountID) {
        const auto label = labels->find(**accountID);
        const auto mailbox = mailboxes->find(**accountID);
        if (label != labels->end())
            source = lists_.label(label->second, **accountID);
        else
            source = lists_.mailbox({**accountID, mailbox != mailboxes->end() ? mailbox->second : "INBOX"});
    }
    if (!source) return std::nullopt;
    MessagePageRequest request(std::move(*source));
    request.search = *searchText;
    request.focus = *focus;
    request.showsUnreadOnly = *showsUnreadOnly;
    return request;
}

// --- Opening messages ------------------------------------------------------------------------------------------

void Selection::openMessage(std::int64_t id) {
    if (!*isMovingInHistory) record(id);
    messages = std::set{id};
    isReaderOpen = true;
}

void Selection::record(std::int64_t id) {
    const auto place = static_cast<std::size_t>(*historyIndex) + 1;
    auto opened = *history;
    opened.resize(std::min(opened.size(), place));
    if (opened.empty() || opened.back() != id) opened.push_back(id);
    if (opened.size() > longestHistory) opened.erase(opened.begin());
    const auto last = static_cast<int>(opened.size()) - 1;
    history = std::move(opened);
    historyIndex = last;
}

void Selection::goBack() {
    move(-1);
}

void Selection::goForward() {
    move(1);
}

/// Goes to the nearest message in that direction that still exists, and stays when there is none.
void Selection::move(int step) {
    const auto count = static_cast<int>(history->size());
    for (int index = *historyIndex + step; index >= 0 && index < count; index += step) {
        const auto id = (*history)[static_cast<std::size_t>(index)];
        if (!environment_.context.lists.find(id)) continue;
        const Moving moving(isMovingInHistory);
        historyIndex = index;
        openMessage(id);
        return;
    }
}

void Selection::selectNext(const std::set<std::int64_t>& leaving) {
    auto staying = *messages;
    std::erase_if(staying, [&](auto id) { return leaving.contains(id); });
    if (staying.size() == messages->size()) return;
    if (!staying.empty()) {
        messages = std::move(staying);
        return;
    }
    const auto list = currentList();
    const auto next = list ? lists_.neighbour(*list, leaving) : std::nullopt;
    if (!next) {
        messages = std::set<std::int64_t>();
        isReaderOpen = false;
    } else if (*isReaderOpen) {
        openMessage(*next);
    } else {
        messages = std::set{*next};
    }
}

// --- Accounts that go ------------------------------------------------------------------------------------------

void Selection::repair(const std::set<UUID>& accounts) {
    const auto isGone = [&](const auto& entry) { return !accounts.contains(entry.first); };
    mailboxes.update([&](auto& all) { std::erase_if(all, isGone); });
    labels.update([&](auto& all) { std::erase_if(all, isGone); });
    if (accounts.empty()) {
        show(std::nullopt, std::nullopt);
        hasOpenedDefaultView_ = false;
        return;
    }
    const bool hasView = *unified || (*accountID && accounts.contains(**accountID));
    if (!std::exchange(hasOpenedDefaultView_, true) || !hasView) {
        openDefaultView();
        return;
    }
    auto staying = *messages;
    std::erase_if(staying, [&](auto id) {
        const auto message = environment_.context.lists.find(id);
        return !message || !accounts.contains(message->mailbox.accountID);
    });
    if (staying.empty()) isReaderOpen = false;
    messages = std::move(staying);
}

}
