#include "store/MailFiling.h"

#include "store/MessageGroups.h"
#include "store/ServerCommands.h"

#include <algorithm>
#include <array>
#include <span>

namespace velmo {

namespace {

/// Mailboxes that are searched for one message.
constexpr std::size_t mostPlaces = 40;

bool isRenumbering(const std::exception_ptr& failure) {
    try {
        std::rethrow_exception(failure);
    } catch (const RenumberedMailbox&) {
        return true;
    } catch (...) {
        return false;
    }
}

}

Async<void> MailFiling::saveDraft(MailAccount account, std::string messageID, Bytes message) {
    return replace(std::move(account), MailboxRole::drafts, std::move(messageID), {"\\Draft", "\\Seen"},
                   std::move(message));
}

Async<void> MailFiling::fileSent(MailAccount account, std::string messageID, Bytes message) {
    return replace(std::move(account), MailboxRole::sent, std::move(messageID), {"\\Seen"}, std::move(message));
}

Async<void> MailFiling::deleteDraft(MailAccount account, MessageRecord draft) {
    if (draft.mailboxPath.empty()) {
        if (draft.messageID) co_await deleteDraft(std::move(account), *draft.messageID);
        co_return;
    }
    const auto engine = engines_.engine(account);
    for (auto& group : grouped(std::span(&draft, 1))) {
        const CommandOutcome outcome = co_await deleteOnServer(engine, std::move(group));
        // Under new numbers its Message-ID still finds it.
        if (outcome.failure && !(draft.messageID && isRenumbering(outcome.failure)))
            std::rethrow_exception(outcome.failure);
    }
    if (draft.messageID) co_await engine->deleteByMessageID(draft.mailboxPath, *draft.messageID);
    co_await sync_->syncMailboxAfresh(account, draft.mailboxPath);
}

Async<void> MailFiling::markAnswered(MailAccount account, MessageRecord message) {
    const auto engine = engines_.engine(account);
    for (auto& group : grouped(std::span(&message, 1))) {
        auto command = setFlagOnServer(engine, std::move(group), IMAPClient::FlagChange::add, "\\Answered");
        const CommandOutcome outcome = co_await std::move(command);
        if (outcome.failure) std::rethrow_exception(outcome.failure);
    }
    // The store follows the server: a mark of its own would not be brought there by anybody if this ended in between.
    co_await sync_->syncMailboxAfresh(account, message.mailboxPath);
}

/// Where the store has the message, and then where it can have been moved to, the likeliest places first.
std::vector<std::string> MailFiling::placesOf(const MailAccount& account, const std::string& messageID) {
    std::vector<std::string> paths;
    const auto add = [&paths](const std::string& path) {
        if (std::ranges::find(paths, path) == paths.end()) paths.push_back(path);
    };
    auto& context = sync_->environment().context;
    for (const auto& record : context.messages.find(context.lists.idsOf({messageID})))
        if (record.accountID == account.id) add(record.mailboxPath);
    auto mailboxes = directory_.mailboxes(account.id);
    std::erase_if(mailboxes, [](const auto& each) { return !each.isSelectable; });
    std::ranges::stable_sort(mailboxes, {}, [](const auto& each) {
        constexpr std::array likely{MailboxRole::inbox, MailboxRole::archive, MailboxRole::trash, MailboxRole::all};
        return std::ranges::find(likely, each.role()) - likely.begin();
    });
    for (const auto& mailbox : mailboxes) add(mailbox.path);
    paths.resize(std::min(paths.size(), mostPlaces));
    return paths;
}

Async<bool> MailFiling::markAnswered(MailAccount account, std::string messageID) {
    const auto engine = engines_.engine(account);
    const auto paths = placesOf(account, messageID);
    for (const auto& path : paths) {
        bool isFound = false;
        try {
            isFound = co_await engine->flagByMessageID(path, messageID, "\\Answered");
        } catch (const IMAPError& error) {
            // One mailbox that can't be opened is no reason not to look into the others.
            if (error.kind() != IMAPError::Kind::commandFailed) throw;
        }
        if (!isFound) continue;
        co_await sync_->syncMailboxAfresh(account, path);
        co_return true;
    }
    co_return false;
}

Async<void> MailFiling::replace(MailAccount account, MailboxRole role, std::string messageID,
                                std::vector<std::string> flags, Bytes message) {
    const std::string path = co_await actions_->roleMailbox(account, role);
    const auto engine = engines_.engine(account);
    co_await engine->replaceByMessageID(path, std::move(messageID), std::move(flags), std::move(message));
    co_await sync_->syncMailboxAfresh(account, path);
}

Async<void> MailFiling::deleteDraft(MailAccount account, std::string messageID) {
    const auto drafts = directory_.mailbox(MailboxRole::drafts, account.id);
    if (!drafts) co_return;
    const std::string path = drafts->path;
    const auto engine = engines_.engine(account);
    const bool isGone = co_await engine->deleteByMessageID(path, std::move(messageID));
    if (isGone) co_await sync_->syncMailboxAfresh(account, path);
}

}
