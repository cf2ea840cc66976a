#include "sync/SyncWriterSamples.h"

#include <csignal>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

// A process is killed in the middle of each single write to the store, one after the other; the next start must find
// either all of an operation or nothing of it, and finish what was cut off.

namespace velmo { namespace {

using test::delta;
using test::listed;
using test::syncedMessage;

long writesUntilDeath = 0;

/// In place of the write that SQLite calls: the one that counts writes half of its bytes, and kills.
ssize_t dyingWrite(int file, const void* bytes, std::size_t size, off64_t offset) {
    if (--writesUntilDeath > 0) return ::pwrite64(file, bytes, size, offset);
    if (::pwrite64(file, bytes, size / 2, offset) >= 0) ::kill(::getpid(), SIGKILL);
    return -1;
}

void dieAtWrite(long number) {
    writesUntilDeath = number;
    sqlite3_vfs* vfs = sqlite3_vfs_find(nullptr);
    for (const char* name : {"pwrite", "pwrite64"}) {
        if (vfs->xGetSystemCall(vfs, name) != nullptr)
            vfs->xSetSystemCall(vfs, name, reinterpret_cast<sqlite3_syscall_ptr>(dyingWrite));
    }
}

const UUID account = *UUID::parse("E621E1F8-C36C-495A-93FC-0C247A3E6E5F");
const MailboxKey inbox{account, "INBOX"};
const MailboxKey work{account, "Work"};

MailboxDelta second() {
    std::vector<SyncedMessage> fresh;
    for (std::uint32_t uid = 31; uid <= 60; ++uid) fresh.push_back(syncedMessage(uid));
    auto change = delta(std::move(fresh), 50, 61);
    for (std::uint32_t uid = 1; uid <= 30; ++uid) {
        change.flagChanges[uid] = {"\\Seen"};
        if (uid % 3 == 0) change.vanished.push_back(uid);
    }
    return change;
}

class SyncWriterCrashTest : public testing::Test {
  protected:
    test::WriterFixture open() {
        return test::WriterFixture(ModelContainer::open(directory_ / "store" / "Mail.sqlite", main_.get_executor()),
                                   directory_ / "Messages");
    }

    /// A store with two filled mailboxes, and the body of each message.
    void fill() {
        auto store = open();
        store.writer.upsertMailboxes(account, {listed("INBOX"), listed("Work")});
        std::vector<SyncedMessage> messages;
        for (std::uint32_t uid = 1; uid <= 30; ++uid) messages.push_back(syncedMessage(uid));
        for (const auto& mailbox : {inbox, work}) {
            store.writer.apply(delta(messages, 30, 31), mailbox, LabelNewMail::no);
            for (const auto uid : store.context->messages.uids(mailbox)) {
                const auto record = *store.context->messages.find(mailbox, uid);
                store.files.saveBody("body", BodyKey::of(record));
                MessageChange change;
                change.hasBody = true;
                store.context->messages.change(record.id, change);
            }
        }
    }

    void SetUp() override {
        fill();
        std::filesystem::create_directory(directory_ / "aside");
        for (const char* part : {"store", "Messages"})
            std::filesystem::copy(directory_ / part, directory_ / "aside" / part, recursively);
    }

    void startOver() {
        for (const char* part : {"store", "Messages"}) {
            std::filesystem::remove_all(directory_ / part);
            std::filesystem::copy(directory_ / "aside" / part, directory_ / part, recursively);
        }
    }

    static void syncAgain(RecordWriter& writer) {
        writer.apply(second(), inbox, LabelNewMail::no);
        writer.upsertMailboxes(account, {listed("INBOX", 50, 30)});
    }

    /// True when the child came to its end.
    bool runAndDie(long write) {
        const auto child = ::fork();
        if (child == 0) {
            auto store = open();
            dieAtWrite(write);
            syncAgain(store.writer);
            ::_exit(0);
        }
        int status = 0;
        EXPECT_EQ(::waitpid(child, &status, 0), child);
        EXPECT_TRUE(WIFSIGNALED(status) || WEXITSTATUS(status) == 0);
        return WIFEXITED(status);
    }

    static void expectWhole(test::WriterFixture& store) {
        const auto state = store.writer.syncState(inbox);
        const bool isApplied = state.uidNext == 61;
        EXPECT_TRUE(isApplied || state.uidNext == 31);
        EXPECT_EQ(state.knownUIDs.size(), isApplied ? 50U : 30U);
        EXPECT_EQ(store.context->messages.find(inbox, 1)->isSeen, isApplied);
        EXPECT_EQ(store.context->messages.count(work), store.context->mailboxes.find(work) ? 30 : 0);
        for (const auto& mailbox : {inbox, work}) {
            for (const auto uid : store.context->messages.uids(mailbox)) {
                const auto record = *store.context->messages.find(mailbox, uid);
                EXPECT_TRUE(!record.hasBody || store.files.loadBody(BodyKey::of(record))) << uid;
            }
        }
    }

    static constexpr auto recursively = std::filesystem::copy_options::recursive;
    test::TemporaryDirectory directory_;
    boost::asio::io_context main_;
};

TEST_F(SyncWriterCrashTest, EveryWriteCanBeTheLast) {
    long deaths = 0;
    for (;;) {
        startOver();
        if (runAndDie(deaths + 1)) break;
        ++deaths;
        auto store = open();
        ASSERT_EQ(sqlite::Database(store.container->file()).integrityCheck(), "ok") << deaths;
        expectWhole(store);
        syncAgain(store.writer);
        EXPECT_EQ(store.writer.syncState(inbox).knownUIDs.size(), 50U);
        EXPECT_EQ(store.context->messages.unseenCount(inbox), 30);
        EXPECT_EQ(store.writer.mailboxEntries(account).size(), 1U);
        if (HasFailure()) FAIL() << "after death " << deaths;
    }
    // The hook was there.
    EXPECT_GT(deaths, 10) << deaths;
}

}}
