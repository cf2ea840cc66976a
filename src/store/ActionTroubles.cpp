#include "store/ActionTroubles.h"

#include "base/Localisation.h"
#include "base/Text.h"
#include "base/UserError.h"
#include "protocols/IMAPError.h"

#include <array>
#include <string_view>

namespace velmo {

namespace {

using Action = ActionTroubles::Action;

constexpr std::array actions{Action::seen, Action::flagged, Action::moved, Action::deleted};
/// A subject may be as long as its sender liked.
constexpr std::size_t longestSubject = 80;

std::string prefixOf(Action action) {
    switch (action) {
    case Action::seen: return "action.seen.";
    case Action::flagged: return "action.flagged.";
    case Action::moved: return "action.moved.";
    case Action::deleted: break;
    }
    return "action.deleted.";
}

std::string keyOf(Action action, std::int64_t id) {
    return prefixOf(action) + std::to_string(id);
}

/// Of the message that the trouble is about; absent when it is about something else.
std::optional<std::int64_t> messageOf(std::string_view key) {
    for (const Action action : actions) {
        const auto prefix = prefixOf(action);
        if (key.starts_with(prefix)) return text::parseSigned64(key.substr(prefix.size()));
    }
    return std::nullopt;
}

/// The server has said no, and so has done nothing.
bool isAnswer(const std::exception_ptr& failure) {
    try {
        std::rethrow_exception(failure);
    } catch (const IMAPError& error) {
        return error.kind() == IMAPError::Kind::commandFailed;
    } catch (...) {
        return false;
    }
}

std::string unknownText(Action action, const std::string& what, const std::string& reason) {
    switch (action) {
    case Action::seen: return tr("Nobody knows whether {} is read on the server now: {}", what, reason);
    case Action::flagged: return tr("Nobody knows whether {} is flagged on the server now: {}", what, reason);
    case Action::moved: return tr("Nobody knows whether {} was moved; the next sync shows it: {}", what, reason);
    case Action::deleted: break;
    }
    return tr("Nobody knows whether {} was deleted; the next sync shows it: {}", what, reason);
}

std::string refusedText(Action action, const std::string& what, const std::string& reason) {
    switch (action) {
    case Action::seen: return tr("{} is read or unread as before: {}", what, reason);
    case Action::flagged: return tr("{} is flagged or unflagged as before: {}", what, reason);
    case Action::moved: return tr("{} could not be moved, and is where it was: {}", what, reason);
    case Action::deleted: break;
    }
    return tr("{} could not be deleted, and is where it was: {}", what, reason);
}

}

std::string ActionTroubles::subjectOf(const MessageGroup& group) const {
    const auto record = environment_.context.messages.find(group.ids.front());
    std::string subject = record ? record->subject : std::string();
    if (subject.size() > longestSubject) {
        std::size_t end = longestSubject;
        while ((static_cast<unsigned char>(subject[end]) & 0xC0) == 0x80) --end;
        subject = subject.substr(0, end) + "…";
    }
    const std::string first = subject.empty() ? tr("A message without a subject") : tr("“{}”", subject);
    return group.ids.size() == 1 ? first : tr("{} (and {} more)", first, group.ids.size() - 1);
}

void ActionTroubles::add(Action action, const MessageGroup& group, const CommandOutcome& outcome) {
    const auto textOf = outcome.isUncertain && !isAnswer(outcome.failure) ? unknownText : refusedText;
    environment_.troubles.add(keyOf(action, group.ids.front()), group.mailbox.accountID,
                              textOf(action, subjectOf(group), sentenceOf(outcome.failure)));
}

void ActionTroubles::settle(Action action, const MessageGroup& group) {
    if (environment_.troubles.all->empty()) return;
    for (const auto id : group.ids) environment_.troubles.settle(keyOf(action, id));
}

std::optional<std::string> ActionTroubles::take(const std::set<std::int64_t>& ids) {
    std::optional<std::string> found;
    const auto standing = environment_.troubles.all.get();
    for (const auto& trouble : standing) {
        const auto id = messageOf(trouble.key);
        if (!id || !ids.contains(*id)) continue;
        found = (found ? *found + "\n" : std::string()) + trouble.text;
        environment_.troubles.settle(trouble.key);
    }
    return found;
}

}
