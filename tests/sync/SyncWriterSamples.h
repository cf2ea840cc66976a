#pragma once

#include "base/ManualClock.h"
#include "records/ModelContext.h"
#include "support/TemporaryDirectory.h"
#include "sync/RecordWriter.h"

#include <boost/asio/io_context.hpp>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace velmo::test {

inline SyncedMessage syncedMessage(std::uint32_t uid, std::set<std::string> flags = {}) {
    SyncedMessage message;
    message.uid = uid;
    message.flags = std::move(flags);
    message.date = dateFromUnixMilliseconds(std::int64_t{uid} * 1000);
    message.size = 1000 + uid;
    IMAPEnvelope envelope;
    envelope.subject = "Message " + std::to_string(uid);
    envelope.from = {{"Sender", "sender@example.com"}};
    envelope.to = {{std::nullopt, "me@example.com"}};
    envelope.messageID = "<" + std::to_string(uid) + "@example.com>";
    message.envelope = std::move(envelope);
    return message;
}

inline MailboxDelta delta(std::vector<SyncedMessage> messages, std::int64_t exists, std::uint32_t uidNext) {
    MailboxDelta result;
    result.state.exists = exists;
    result.state.uidValidity = 1;
    result.state.uidNext = uidNext;
    result.state.highestModSeq = uidNext;
    result.newMessages = std::move(messages);
    return result;
}

inline ListedMailbox listed(std::string path, std::int64_t messages = 0, std::int64_t unseen = 0) {
    const auto role = mailboxRole(path, {});
    return {{std::move(path), "/", {}, role}, messages, unseen};
}

/// A writer on a store and body files of its own, and a second context to look at what it wrote.
struct WriterFixture {
    explicit WriterFixture(std::shared_ptr<ModelContainer> store, const std::filesystem::path& bodies)
        : container(std::move(store)),
          files(bodies),
          writer(container->makeContext(), files, clock),
          context(container->makeContext()) {}

    std::shared_ptr<ModelContainer> container;
    MessageFiles files;
    std::shared_ptr<ManualClock> clock = std::make_shared<ManualClock>();
    RecordWriter writer;
    std::unique_ptr<ModelContext> context;
};

}
