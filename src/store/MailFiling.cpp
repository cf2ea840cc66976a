#include "store/MailFiling.h"

#include "store/MessageGroups.h"
#include "store/ServerCommands.h"

#include <span>

namespace velmo {

namespace {

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
