#pragma once

#include "store/MessageLists.h"
#include "store/StoreRig.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace velmo::test {

/// What matters of a message to a list.
struct Look {
    std::string subject{};
    std::string category{};
    std::string labels{};
    std::string thread{};
    bool isSeen = false;
};

/// Two accounts with their inboxes, and lists over them. No server is asked anything.
class ListsFixture : public testing::Test {
  protected:
    ListsFixture() {
        MailAccount other;
        other.id = second;
        other.email = "bob@example.test";
        rig_.run([&]() -> Async<void> { co_await rig_.environment.accounts.add(other, std::string("secret")); });
        addMailbox(inbox1, MailboxRole::inbox);
        addMailbox(inbox2, MailboxRole::inbox);
    }

    ~ListsFixture() override {
        rig_.run([this]() -> Async<void> { co_await lists->stopIndexing(); });
    }

    void addMailbox(const MailboxKey& key, MailboxRole role) {
        MailboxRecord mailbox;
        mailbox.accountID = key.accountID;
        mailbox.path = mailbox.name = key.path;
        mailbox.delimiter = "/";
        mailbox.roleRaw = rawText(role);
        context->mailboxes.store(mailbox);
        rig_.run([]() -> Async<void> { co_return; });
    }

    void addLabel(const std::string& key, const std::string& name) {
        LabelRecord label;
        label.key = key;
        label.name = name;
        context->labels.store(label);
    }

    MessageRecord record(const MailboxKey& mailbox, std::int64_t date, const Look& look = {}) {
        MessageRecord message;
        message.accountID = mailbox.accountID;
        message.mailboxPath = mailbox.path;
        message.uid = ++lastUID_;
        message.date = dateFromUnixMilliseconds(date);
        message.subject = look.subject;
        message.categoryRaw = look.category;
        message.labelsJoined = look.labels;
        message.threadKey = look.thread.empty() ? "uid:" + std::to_string(message.uid) : look.thread;
        message.isSeen = look.isSeen;
        return message;
    }

    void insert(std::vector<MessageRecord>& records) { context->messages.insert(records); }

    std::int64_t add(const MailboxKey& mailbox, std::int64_t date, const Look& look = {}) {
        std::vector records{record(mailbox, date, look)};
        insert(records);
        return records[0].id;
    }

    bool eventually(const std::function<bool()>& condition) { return rig_.eventually(condition); }

  private:
    StoreRig rig_{ServerConfig(), "alice", "secret", std::make_shared<ManualClock>()};
    std::int64_t lastUID_ = 0;

  protected:
    ModelContext* context = rig_.context.get();
    BodyIndex& index = rig_.index;
    StoreStatus& status = rig_.status;
    StoreEnvironment& environment = rig_.environment;
    MailboxDirectory& mailboxes = rig_.directoryOfMailboxes;
    const UUID first = rig_.account.id;
    const UUID second = UUID::random();
    const MailboxKey inbox1{first, "INBOX"};
    const MailboxKey inbox2{second, "INBOX"};
    std::shared_ptr<MessageLists> lists =
        std::make_shared<MessageLists>(rig_.environment, rig_.status, rig_.directoryOfMailboxes);
};

}
