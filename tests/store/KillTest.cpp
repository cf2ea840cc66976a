// A process with an open mail store is killed before every single thing it does to the world: a commit, the renaming or
// removal of a file, a word to the server, in the middle of a write. What the next start finds must be whole, and what
// it makes of it the same as if nothing had happened.

#include "store/Deaths.h"
#include "store/MailView.h"
#include "support/ServerTest.h"

#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <set>

namespace velmo::test { namespace {

using FlagChange = IMAPClient::FlagChange;

/// Of writes there are too many to die at each.
const std::map<Deed, long> sampledDeaths{{Deed::fileWrite, 4}, {Deed::socketWrite, 4}};

class KillTest : public WithServers<> {
  protected:
    using Work = std::function<void(OpenStore&)>;

    void start(const std::string& without = {}) {
        servers_.emplace(without);
        home_.emplace(*servers_);
    }

    /// Does something as another client of the account.
    template <class Conversation>
    auto elsewhere(Conversation conversation) {
        Runtime runtime;
        SystemClock clock;
        const auto client = anotherClient(runtime, clock, *home_);
        runtime.run([&] { return client->connect(); });
        auto end = [&] { runtime.run([&] { return client->close(); }); };
        if constexpr (std::is_void_v<decltype(runtime.run([&] { return conversation(client); }))>) {
            runtime.run([&] { return conversation(client); });
            end();
        } else {
            auto result = runtime.run([&] { return conversation(client); });
            end();
            return result;
        }
    }
    std::string mailThere() {
        return elsewhere([](auto client) { return mailOnServer(client); });
    }

    /// Kills a process that works with the store.
    void dieEverywhere(const Work& work, const std::function<void()>& before, const std::function<void()>& after) {
        const auto withStore = [&] {
            OpenStore store(*home_);
            work(store);
        };
        deaths_ = test::dieEverywhere(withStore, before, after, sampledDeaths);
    }

    std::optional<MailServers> servers_;
    std::optional<StoreHome> home_;
    std::map<Deed, long> deaths_;
};

TEST_F(KillTest, APassAndAPrefetchAreCompletedByTheNextStart) {
    start();
    servers_->fill(6);
    servers_->fill("Work/Plans", 3, 2);
    const Work work = [](OpenStore& store) {
        EXPECT_EQ(store.pass(), SyncStatus::idle());
        store.prefetch();
    };
    {
        OpenStore store(*home_);
        work(store);
    }
    home_->keep();
    servers_->fill(2, 9);
    servers_->fill("Letters", 2, 3);
    elsewhere([](std::shared_ptr<IMAPClient> client) -> Async<void> {
        std::vector<std::string> flags{"\\Seen", "\\Flagged"};
        co_await client->store("INBOX", "1:2", FlagChange::add, std::move(flags));
        co_await client->deleteMessages("INBOX", "3:4");
        co_await client->deleteMessages("Work/Plans", "1");
    });
    const auto there = mailThere();
    const Sources sources = elsewhere([](auto client) { return sourcesOnServer(client); });
    home_->bringBack();
    std::string bodies;
    {
        OpenStore store(*home_);
        work(store);
        ASSERT_EQ(mailInStore(store), there);
        ASSERT_EQ(damageIn(store, *home_, sources), "");
        bodies = bodiesInStore(store, *home_);
    }
    dieEverywhere(
        work, [&] { home_->bringBack(); },
        [&] {
            OpenStore store(*home_);
            EXPECT_EQ(damageIn(store, *home_, sources), "");
            work(store);
            EXPECT_EQ(mailInStore(store), there);
            EXPECT_EQ(damageIn(store, *home_, sources), "");
            EXPECT_EQ(bodiesInStore(store, *home_), bodies);
        });
    for (const auto& [deed, deaths] : deaths_) EXPECT_GE(deaths, 3) << int(deed);
}

/// The parameter is what the server lacks.
class KilledMove : public KillTest, public testing::WithParamInterface<const char*> {
  protected:
    using IDs = std::multiset<std::string>;

    struct There {
        IDs inbox, archive;
        std::string text;
    };

    /// Brings all messages back into the inbox, each once, unread and unmarked.
    void tidyUp() {
        elsewhere([](std::shared_ptr<IMAPClient> client) -> Async<void> {
            std::vector<std::string> marks{"\\Deleted", "\\Seen"};
            const auto inbox = co_await idsIn(client, "INBOX");
            const auto state = co_await client->select("Archive");
            if (state.exists > 0) {
                const auto archived = co_await client->uidFetch("Archive", "1:*", "UID ENVELOPE");
                std::vector<std::uint32_t> missing;
                for (const auto& one : archived)
                    if (!inbox.contains(one.envelope->messageID.value())) missing.push_back(*one.uid);
                if (!missing.empty()) co_await client->moveMessages("Archive", uidSet(missing), "INBOX");
                if (missing.size() < archived.size()) co_await client->deleteMessages("Archive", "1:*");
            }
            co_await client->store("INBOX", "1:*", FlagChange::remove, std::move(marks));
        });
    }

    There there() {
        return elsewhere([](std::shared_ptr<IMAPClient> client) -> Async<There> {
            There found;
            found.inbox = co_await idsIn(client, "INBOX");
            found.archive = co_await idsIn(client, "Archive");
            found.text = co_await mailOnServer(client);
            co_return found;
        });
    }

    static Async<IDs> idsIn(std::shared_ptr<IMAPClient> client, std::string path) {
        IDs ids;
        const auto state = co_await client->select(path);
        if (state.exists == 0) co_return ids;
        const auto all = co_await client->uidFetch(path, "1:*", "UID ENVELOPE");
        for (const auto& one : all) ids.insert(one.envelope->messageID.value());
        co_return ids;
    }

    /// A message that can't be moved may stand in both when nobody was left to take away the first.
    void expectEachOnce(const IDs& all, const There& there) {
        const auto most = std::string_view(GetParam()).empty() ? 1U : 2U;
        for (const auto& id : all) {
            EXPECT_GE(there.inbox.count(id) + there.archive.count(id), 1U) << id;
            EXPECT_LE(there.inbox.count(id) + there.archive.count(id), most) << id;
            EXPECT_LE(there.archive.count(id), 1U) << id;
        }
    }
};

TEST_P(KilledMove, LosesNoMessage) {
    start(GetParam());
    servers_->fill(6);
    const IDs all = there().inbox;
    const Work work = [](OpenStore& store) {
        auto& actions = store.mail().actions();
        actions.archive(store.held("INBOX", 2));
        actions.commitPendingAction();
        store.run([&] { return actions.finished(); });
        EXPECT_EQ(store.held("Archive").size(), 2U);
    };
    const auto before = [&] {
        tidyUp();
        OpenStore store(*home_);
        EXPECT_EQ(store.pass(), SyncStatus::idle());
        EXPECT_EQ(store.held("INBOX").size(), 6U);
        for (const auto& record : store.held("INBOX", 2))
            store.files().saveBody("Subject: x\r\n\r\n", BodyKey::of(record));
    };
    dieEverywhere(work, before, [&] {
        const There found = there();
        expectEachOnce(all, found);
        OpenStore store(*home_);
        EXPECT_EQ(damageIn(store, *home_, {}), "");
        EXPECT_EQ(store.pass(), SyncStatus::idle());
        EXPECT_EQ(mailInStore(store), found.text);
        EXPECT_EQ(damageIn(store, *home_, {}), "");
    });
    for (const auto deed : {Deed::commit, Deed::removal, Deed::socketWrite}) EXPECT_GE(deaths_[deed], 2) << int(deed);
}

INSTANTIATE_TEST_SUITE_P(Servers, KilledMove, testing::Values("", "MOVE"));

}}
