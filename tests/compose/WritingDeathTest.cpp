// A process that writes and sends is killed before every single thing it does to the world. What was queued goes out
// once, what was taken back or saved is still there, and the next start finishes what was left half done.

#include "compose/ComposeModel.h"
#include "compose/OpenOutbox.h"
#include "store/Deaths.h"
#include "support/ServerTest.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>

namespace velmo::test { namespace {

using namespace std::chrono_literals;
using testing::Each;
using testing::HasSubstr;

class WritingDeaths : public WithServers<> {
  protected:
    /// How far the process has come, as those are told who use it.
    enum class Stage : int { begun, queued, takenBack, queuedAgain, saved, savedAgain };

    void prepare() override {
        servers_.emplace();
        servers_->fill(120);
        relay_.emplace(servers_->smtp(ServerConfig::Security::tls), servers_->certificate());
        home_.emplace(aliceBehind(*relay_, *servers_), servers_->value("ALICE_PASSWORD"));
        void* shared = ::mmap(nullptr, sizeof(Stage), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        ASSERT_NE(shared, MAP_FAILED);
        stage_ = static_cast<Stage*>(shared);
        OpenOutbox process(*home_);
        ASSERT_EQ(process.store().pass(), SyncStatus::idle());
        for (const auto& record : process.store().held("INBOX")) answerable_.push_back(record);
        process.store().run([&] { return process.store().mail().filing().saveDraft(home_->account, "<0@x>", "x: y"); });
    }

    void TearDown() override {
        if (stage_ != nullptr) ::munmap(stage_, sizeof(Stage));
    }

    /// A message that has not been there before.
    void nextItem(Duration delay) {
        item_ = toBob(home_->account, SystemClock().now() + delay, fmt::format("<{:05}@example.test>", ++rounds_));
        *stage_ = Stage::begun;
    }

    /// What the window for a message does that was taken back.
    std::unique_ptr<ComposeModel> reopened(OpenOutbox& process) {
        auto model = std::make_unique<ComposeModel>(process.store().mail(), process.outbox(), process.store().settings);
        const ComposeRequest request = ComposeRequest::Outbox{item_.id};
        process.store().run([&] { return model->load(request); });
        EXPECT_EQ(*model->errorMessage, std::nullopt);
        return model;
    }

    bool hasFile(std::string_view ending) const {
        return std::filesystem::exists(OpenOutbox::folderOf(*home_) / (item_.id.text() + std::string(ending)));
    }

    /// The messages in a mailbox with the ID of this one.
    std::vector<MailServers::Stored> stored(const std::string& user, const std::string& mailbox) const {
        return stored(user, mailbox, item_.messageID);
    }
    std::vector<MailServers::Stored> stored(const std::string& user, const std::string& mailbox,
                                            const std::string& messageID) const {
        auto all = servers_->mail(user, mailbox);
        std::erase_if(all, [&](const auto& one) { return messageIDIn(one.bytes) != messageID; });
        return all;
    }

    std::vector<OutboxItem> queued(OpenOutbox& process) const {
        std::vector<OutboxItem> found;
        for (const auto& item : *process.outbox().items)
            if (item->messageID == item_.messageID) found.push_back(*item);
        return found;
    }

    /// How often a server may have been given the whole message.
    long timesCarried() const {
        return std::ranges::count_if(relay_->passages(), [this](const auto& passage) {
            return wasCarriedWhole(passage) && messageIDIn(passage.toServer) == item_.messageID;
        });
    }

    void expectNothingLeft(OpenOutbox& process) {
        const auto folder = OpenOutbox::folderOf(*home_);
        EXPECT_TRUE(process.store().eventually([&] { return std::filesystem::is_empty(folder); }))
            << std::filesystem::directory_iterator(folder)->path();
        EXPECT_TRUE(process.outbox().items->empty());
    }

    /// Delivered and filed, the same; twice only when the process died in doubt.
    void expectSent(bool wasInDoubt) {
        ASSERT_TRUE(eventually([this] { return servers_->hasDelivered(); }));
        std::vector<std::string> copies;
        for (const auto& one : stored("bob", "INBOX")) copies.push_back(ownPart(one.bytes));
        EXPECT_GE(copies.size(), 1U);
        EXPECT_LE(copies.size(), wasInDoubt ? 2U : 1U);
        const auto filed = stored("alice", "Sent");
        ASSERT_EQ(filed.size(), 1U);
        EXPECT_THAT(copies, Each(filed[0].bytes + "\n"));
        EXPECT_TRUE(stored("alice", "Drafts").empty());
    }

    /// The same, of a process that died while a file said that the message waited, or didn't.
    void expectSentAfter(bool didWait) {
        const auto carried = timesCarried();
        EXPECT_GE(carried, 1);
        EXPECT_LE(carried, didWait ? 2 : 1);
        if (carried > 1) ++doubtful_;
        expectSent(carried > 1);
    }

    std::optional<MailServers> servers_;
    std::optional<TLSRelay> relay_;
    std::optional<StoreHome> home_;
    std::vector<MessageRecord> answerable_;
    Stage* stage_ = nullptr; ///< seen by the process that dies
    OutboxItem item_;
    std::size_t rounds_ = 0;
    int doubtful_ = 0;
};

TEST_F(WritingDeaths, AMessageIsSentOnceAndFiledAndItsDraftGoes) {
    const auto before = [&] {
        nextItem(0s);
        item_.hasSavedDraft = true;
        item_.answering = answerable_.at(rounds_).id;
        servers_->deliver("Message-ID: " + item_.messageID + "\nSubject: a draft\n\nx\n", "Drafts");
    };
    const auto work = [&] {
        OpenOutbox process(*home_);
        process.enqueue(item_);
        *stage_ = Stage::queued;
        process.settle();
    };
    const auto after = [&] {
        const bool waits = hasFile(".json");
        OpenOutbox process(*home_);
        expectNothingLeft(process);
        if (*stage_ == Stage::begun && !waits) {
            EXPECT_EQ(timesCarried(), 0);
            EXPECT_EQ(stored("alice", "Drafts").size(), 1U);
            return;
        }
        expectSentAfter(waits);
        const auto answered = answerable_.at(rounds_);
        EXPECT_TRUE(process.store().mail().context().messages.find(answered.id)->isAnswered);
        const auto original = stored("alice", "INBOX", answered.messageID.value());
        ASSERT_EQ(original.size(), 1U);
        EXPECT_THAT(original[0].flags, HasSubstr("R"));
    };
    const auto deaths = dieEverywhere(work, before, after, {{Deed::commit, 5}});
    EXPECT_GE(deaths.at(Deed::socketWrite), 20); // each word to both servers
    EXPECT_GE(doubtful_, 1);
}

TEST_F(WritingDeaths, AMessageThatWasTakenBackIsADraftOrStillThere) {
    const auto work = [&] {
        OpenOutbox process(*home_);
        process.enqueue(item_);
        *stage_ = Stage::queued;
        ASSERT_TRUE(process.takeBack(item_.id));
        *stage_ = Stage::takenBack;
        const auto model = reopened(process);
        process.store().run([&] { return model->saveDraft(); });
        *stage_ = Stage::saved;
        process.store().run([&] { return model->close(); });
    };
    const auto after = [&] {
        OpenOutbox process(*home_);
        const auto items = queued(process);
        const auto drafts = stored("alice", "Drafts");
        EXPECT_LE(items.size(), 1U);
        EXPECT_LE(drafts.size(), 1U);
        EXPECT_GE(items.size() + drafts.size(), *stage_ == Stage::begun ? 0U : 1U);
        if (*stage_ == Stage::saved) {
            EXPECT_EQ(drafts.size(), 1U);
        }
        EXPECT_EQ(timesCarried(), 0);
        if (items.empty()) return;
        if (*stage_ >= Stage::takenBack) {
            EXPECT_TRUE(items[0].hasFailed());
        }
        EXPECT_TRUE(process.retry(items[0].id)); // the person sends it after all
        expectNothingLeft(process);
        expectSent(false);
    };
    const auto deaths = dieEverywhere(work, [&] { nextItem(1h); }, after,
                                      {{Deed::commit, 3}, {Deed::fileWrite, 4}, {Deed::socketWrite, 8}});
    EXPECT_GE(deaths.at(Deed::rename), 2);
    EXPECT_GE(deaths.at(Deed::removal), 1);
}

TEST_F(WritingDeaths, AMessageThatWasTakenBackAndSentAgainIsSentOnce) {
    const auto work = [&] {
        OpenOutbox process(*home_);
        process.store().settings.setInteger("undoSendSeconds", 0);
        process.enqueue(item_);
        *stage_ = Stage::queued;
        ASSERT_TRUE(process.takeBack(item_.id));
        const auto model = reopened(process);
        ASSERT_TRUE(process.store().run([&] { return model->send(); }));
        *stage_ = Stage::queuedAgain;
        process.settle();
        process.store().run([&] { return model->close(); });
    };
    const auto after = [&] {
        bool waits = false;
        for (const auto& entry : std::filesystem::directory_iterator(OpenOutbox::folderOf(*home_)))
            waits = waits || entry.path().extension() == ".json";
        OpenOutbox process(*home_);
        process.settle();
        const auto items = queued(process);
        EXPECT_LE(items.size(), 1U);
        if (items.empty() && *stage_ == Stage::begun) return;
        if (!items.empty()) { // as it was before it was sent again
            EXPECT_LT(*stage_, Stage::queuedAgain);
            EXPECT_EQ(timesCarried(), 0);
            EXPECT_TRUE(process.retry(items[0].id));
        }
        expectNothingLeft(process);
        expectSentAfter(waits);
    };
    const auto deaths = dieEverywhere(work, [&] { nextItem(1h); }, after,
                                      {{Deed::commit, 1}, {Deed::fileWrite, 6}, {Deed::socketWrite, 6}});
    EXPECT_GE(deaths.at(Deed::rename), 4);
}

TEST_F(WritingDeaths, ADraftIsThereAsItWasSavedLast) {
    const auto save = [&](OpenOutbox& process, const std::string& text) {
        ComposeModel model(process.store().mail(), process.outbox(), process.store().settings);
        const ComposeRequest request = ComposeRequest::New{home_->account.id, UUID::random()};
        process.store().run([&] { return model.load(request); });
        model.messageID = item_.messageID;
        model.subject = text;
        process.store().run([&] { return model.saveDraft(); });
        process.store().run([&] { return model.close(); });
    };
    const auto work = [&] {
        OpenOutbox process(*home_);
        save(process, "first version");
        *stage_ = Stage::saved;
        save(process, "second version");
        *stage_ = Stage::savedAgain;
    };
    const auto holds = [&](const char* text) {
        return std::ranges::any_of(stored("alice", "Drafts"),
                                   [&](const auto& draft) { return draft.bytes.contains(text); });
    };
    const auto after = [&] {
        if (*stage_ == Stage::saved) {
            EXPECT_TRUE(holds("first version") || holds("second version"));
        }
        if (*stage_ == Stage::savedAgain) {
            EXPECT_TRUE(holds("second version"));
        }
        OpenOutbox process(*home_);
        save(process, "third version");
        EXPECT_EQ(stored("alice", "Drafts").size(), 1U);
        EXPECT_TRUE(holds("third version"));
    };
    const auto deaths = dieEverywhere(work, [&] { nextItem(1h); }, after, {{Deed::commit, 3}, {Deed::fileWrite, 3}});
    EXPECT_GE(deaths.at(Deed::socketWrite), 10);
}

}}
