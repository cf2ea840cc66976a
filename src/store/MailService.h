#pragma once

#include "accounts/MailAccount.h"
#include "base/Async.h"
#include "sync/MailboxDelta.h"

#include <vector>

namespace velmo {

/// Something that lives above the mail store and follows what happens in it: the outbox, snoozes, follow-ups,
/// reminders, memories, the server for other programs. Called on the main executor; nothing here may take long or
/// throw.
class MailService {
  public:
    enum class Check { completePass, inboxOnly };

    MailService() = default;
    virtual ~MailService() = default;
    MailService(const MailService&) = delete;
    MailService& operator=(const MailService&) = delete;

    /// The store has started; called at each start, which may be repeated.
    virtual void start() {}

    /// The store is about to stop; ends what is under way.
    virtual Async<void> stop() { co_return; }

    /// Mail of an account has been brought up to date.
    virtual void checked(const MailAccount&, Check) {}

    /// Unseen mail that a person should be told of, newest first.
    virtual void mailArrived(const MailAccount&, const std::vector<SyncedMessage>&) {}

    /// The account has another password or other servers.
    virtual void accountChanged(const UUID&) {}

    /// Everything of the account is to be forgotten.
    virtual void accountRemoved(const UUID&) {}
};

}
