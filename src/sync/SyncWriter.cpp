#include "sync/SyncWriter.h"

#include "records/ModelContext.h"
#include "sync/RecordWriter.h"

namespace velmo {

struct SyncWriter::State {
    RecordWriter writer;
    Executor strand;
    std::shared_ptr<LocalChanges> localChanges = std::make_shared<LocalChanges>();
};

SyncWriter::SyncWriter(const std::shared_ptr<ModelContainer>& container, MessageFiles files,
                       std::shared_ptr<Clock> clock, const Executor& background)
    : state_(std::make_shared<State>(RecordWriter(container->makeContext(), std::move(files), std::move(clock)),
                                     makeStrand(background))) {}

LocalChanges& SyncWriter::localChanges() {
    return *state_->localChanges;
}

// Each operation holds the state itself: the writer may be dropped while one is running.

Async<std::vector<MailboxEntry>> SyncWriter::mailboxEntries(UUID accountID) {
    const auto state = state_;
    co_return co_await callOn(state->strand, [&] { return state->writer.mailboxEntries(accountID); });
}

Async<void> SyncWriter::upsertMailboxes(UUID accountID, std::vector<ListedMailbox> listed, Reading reading) {
    const auto state = state_;
    co_await callOn(state->strand, [&] { state->writer.upsertMailboxes(accountID, listed, reading.get()); });
}

Async<SyncState> SyncWriter::syncState(UUID accountID, std::string path) {
    const auto state = state_;
    const MailboxKey mailbox{accountID, std::move(path)};
    co_return co_await callOn(state->strand, [&] { return state->writer.syncState(mailbox); });
}

Async<AppliedDelta> SyncWriter::apply(MailboxDelta delta, UUID accountID, std::string path, LabelNewMail labelNewMail,
                                      Reading reading) {
    const auto state = state_;
    const MailboxKey mailbox{accountID, std::move(path)};
    co_return co_await callOn(
        state->strand, [&] { return state->writer.apply(std::move(delta), mailbox, labelNewMail, reading.get()); });
}

Async<void> SyncWriter::insertOlder(std::vector<SyncedMessage> messages, UUID accountID, std::string path,
                                    std::int64_t uidValidity, LabelNewMail labelNewMail) {
    const auto state = state_;
    const MailboxKey mailbox{accountID, std::move(path)};
    co_await callOn(state->strand, [&] { state->writer.insertOlder(messages, mailbox, uidValidity, labelNewMail); });
}

Async<void> SyncWriter::insertMessages(std::vector<SyncedMessage> messages, UUID accountID, std::string path,
                                       std::int64_t uidValidity, LabelNewMail labelNewMail) {
    const auto state = state_;
    const MailboxKey mailbox{accountID, std::move(path)};
    co_await callOn(state->strand, [&] { state->writer.insertMessages(messages, mailbox, uidValidity, labelNewMail); });
}

Async<void> SyncWriter::removeLeft(LeftMessages left) {
    const auto state = state_;
    co_await callOn(state->strand, [&] { state->writer.removeLeft(left); });
}

Async<void> SyncWriter::write(std::function<void(ModelContext&)> work) {
    const auto state = state_;
    co_await callOn(state->strand, [&] { state->writer.write(work); });
}

Async<std::size_t> SyncWriter::indexTexts(std::size_t limit) {
    const auto state = state_;
    co_return co_await callOn(state->strand, [&] { return state->writer.indexTexts(limit); });
}

Async<void> SyncWriter::dropStaleIndex() {
    const auto state = state_;
    co_await callOn(state->strand, [&] { state->writer.dropStaleIndex(); });
}

Async<void> SyncWriter::deleteAccount(UUID accountID) {
    const auto state = state_;
    co_await callOn(state->strand, [&] { state->writer.deleteAccount(accountID); });
}

}
