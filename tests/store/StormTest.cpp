// A mail store at work while another client and the person change everything, mailboxes are made anew, and connections
// break: whenever it grows quiet, store and server agree.

#include "base/ManualClock.h"
#include "store/MailView.h"
#include "support/FaultProxy.h"
#include "support/ServerTest.h"

#include <algorithm>
#include <cstdlib>
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <iterator>
#include <random>

namespace velmo::test { namespace {

using namespace std::chrono_literals;
using FlagChange = IMAPClient::FlagChange;
using Client = std::shared_ptr<IMAPClient>;
using Random = std::mt19937;

constexpr const char* paths[]{"INBOX", "Archive", "Trash", "Work/Plans"};
/// The one that is deleted and made again under its name.
constexpr const char* renumbered = "Work/Plans";
constexpr int stepsOfRound = 40;

std::chrono::seconds lengthOfStorm() {
    const char* seconds = std::getenv("VELMO_STORM_SECONDS"); // NOLINT(concurrency-mt-unsafe): nobody sets it
    return std::chrono::seconds(seconds != nullptr ? std::max(1, std::atoi(seconds)) : 4);
}

/// Another client of the account, which does what comes to its mind and minds no refusal: a mailbox that was just made
/// again may still be gone for the server.
class OtherClient {
  public:
    OtherClient(Client client, Random& random) : client_(std::move(client)), random_(random) {}

    Async<void> act() {
        return minding([this] { return actOnce(); });
    }

    /// Deletes a mailbox with all that is in it, and makes it again with other messages.
    Async<void> renumber() {
        return minding([this]() -> Async<void> {
            co_await client_->select("INBOX");
            co_await client_->execute(fmt::format("DELETE \"{}\"", renumbered));
            co_await client_->createMailbox(renumbered);
            for (int i = 0; i < 5; ++i) co_await append(renumbered);
        });
    }

    Async<std::string> mail() {
        co_await client_->connect();
        co_return co_await mailOnServer(client_);
    }
    Async<Sources> sources() { return sourcesOnServer(client_); }

  private:
    template <class Work>
    Async<void> minding(Work work) {
        co_await client_->connect();
        try {
            co_await work();
        } catch (const IMAPError&) {
            // It goes on with something else.
        }
    }

    Async<void> actOnce() {
        const std::string path = anyPath();
        auto uids = co_await client_->search(path, "ALL");
        std::ranges::shuffle(uids, random_);
        const bool isFull = uids.size() > 40;
        uids.resize(std::min<std::size_t>(uids.size(), 1 + random_() % 4));
        const auto choice = random_() % 8;
        if (uids.empty() || (choice < 3 && !isFull)) co_return co_await append(path);
        const std::string set = uidSet(uids);
        if (choice < 5)
            co_await flag(path, set);
        else if (choice < 7)
            co_await client_->moveMessages(path, set, anyPath());
        else
            co_await client_->deleteMessages(path, set);
    }

    std::string anyPath() { return paths[random_() % std::size(paths)]; }

    Async<void> append(std::string path) {
        std::vector<std::string> flags;
        if (random_() % 2 == 0) flags.emplace_back("\\Seen");
        ++appended_;
        Bytes message = fmt::format("Message-ID: <storm{}@x>\r\nSubject: Wind {}\r\nDate: 3 Mar 2026 10:{:02}:00 +0000"
                                    "\r\n\r\ngust{}\r\n",
                                    appended_, appended_, appended_ % 60, appended_);
        std::optional<std::vector<std::string>> given(std::move(flags));
        co_await client_->append(std::move(path), std::move(given), std::move(message));
    }

    Async<void> flag(std::string path, std::string set) {
        constexpr const char* all[]{"\\Seen", "\\Flagged", "\\Answered", "$Work"};
        std::vector<std::string> flags;
        flags.emplace_back(all[random_() % std::size(all)]);
        const auto change = random_() % 2 == 0 ? FlagChange::add : FlagChange::remove;
        co_await client_->store(std::move(path), std::move(set), change, std::move(flags));
    }

    Client client_;
    Random& random_;
    int appended_ = 0;
};

class Storm : public WithServers<testing::TestWithParam<const char*>> {
  protected:
    void prepare() override {
        servers_.emplace(GetParam());
        servers_->fill(20);
        servers_->fill(renumbered, 5, 2);
        const auto direct = servers_->imap(ServerConfig::Security::tls);
        proxy_.emplace(direct.host, direct.port);
        const ServerConfig line("localhost", proxy_->port(), ServerConfig::Security::tls);
        home_.emplace(StoreHome::accountAt(line, servers_->value("ALICE_USER")), servers_->value("ALICE_PASSWORD"));
        store_.emplace(*home_, clock_);
        const auto client =
            std::make_shared<IMAPClient>(makeStrand(store_->runtime.executors().io), machineClock_, direct,
                                         MailCredential::password(home_->account.username, home_->password));
        store_->run([&] { return client->connect(); });
        other_.emplace(client, random_);
        store_->run([this] { return store_->mail().start(); });
    }
    void TearDown() override {
        other_.reset();
        store_.reset();
    }

    MessageActions& actions() { return store_->mail().actions(); }

    MessageActions::Records anyMessages() {
        MessageActions::Records all;
        for (const auto* path : paths) {
            auto held = store_->held(path);
            std::ranges::move(held, std::back_inserter(all));
        }
        std::erase_if(all, [this](const auto& one) { return store_->mail().status().hidden->contains(one.id); });
        std::ranges::shuffle(all, random_);
        all.resize(std::min<std::size_t>(all.size(), 1 + random_() % 4));
        return all;
    }

    void actAsPerson() {
        using ReadState = MessageActions::ReadState;
        using FlagState = MessageActions::FlagState;
        const auto some = anyMessages();
        const bool isOn = random_() % 2 == 0;
        switch (random_() % 8) {
        case 0: actions().archive(some); break;
        case 1: actions().moveToTrash(some); break;
        case 2: actions().moveToInbox(some); break;
        case 3: actions().move(some, renumbered); break;
        case 4: actions().setRead(some, isOn ? ReadState::read : ReadState::unread); break;
        case 5: actions().setFlagged(some, isOn ? FlagState::flagged : FlagState::unflagged); break;
        case 6: actions().undo(); break;
        default: actions().commitPendingAction(); break;
        }
    }

    void letTimePass() {
        constexpr Duration spans[]{2s, 2s, 2s, 2s, 5s, 5s, 30s, 600s};
        clock_->advance(spans[random_() % std::size(spans)]);
    }

    void step() {
        switch (random_() % 40) {
        case 0: return proxy_->breakAll();
        default: break;
        }
        switch (random_() % 4) {
        case 0: return actAsPerson();
        case 1: return letTimePass();
        default: return store_->run([this] { return other_->act(); });
        }
    }

    bool isQuiet() {
        auto& mail = store_->mail();
        return mail.status().of(store_->account.id).kind != SyncStatus::Kind::syncing &&
               mail.sync().syncingMailboxes->empty();
    }

    /// Flags that were changed while it could not be reached are told after a pass.
    bool isServerTold() { return store_->mail().context().unsentFlags.of(store_->account.id).empty(); }

    /// Ends what is under way, and has one more pass.
    void growQuiet() {
        actions().commitPendingAction();
        store_->run([this] { return actions().finished(); });
        // A connection that broke meanwhile shows only when it is used.
        SyncStatus status = SyncStatus::syncing();
        for (int attempt = 1; attempt <= 4 && (status != SyncStatus::idle() || !isServerTold()); ++attempt) {
            ASSERT_TRUE(store_->eventually([this] { return isQuiet(); }));
            status = store_->pass();
            store_->run([this] { return actions().finished(); });
            ASSERT_TRUE(store_->eventually([this] { return isQuiet(); }));
        }
        EXPECT_EQ(status, SyncStatus::idle()) << status.text;
        EXPECT_TRUE(isServerTold());
    }

    void expectAgreement() {
        EXPECT_TRUE(store_->mail().status().hidden->empty());
        EXPECT_EQ(mailInStore(*store_), store_->run([this] { return other_->mail(); }));
    }

    void expectBodies() {
        auto& prefetch = store_->mail().prefetch();
        ASSERT_TRUE(store_->eventually([&] { return !prefetch.isRunning(store_->account.id); }));
        store_->prefetch();
        EXPECT_EQ(prefetch.bodiesMissing(store_->account.id), 0);
        const Sources sources = store_->run([this] { return other_->sources(); });
        EXPECT_EQ(damageIn(*store_, *home_, sources), "");
    }

    Random random_{20'260'301};
    SystemClock machineClock_;
    std::shared_ptr<ManualClock> clock_ = std::make_shared<ManualClock>();
    std::optional<MailServers> servers_;
    std::optional<FaultProxy> proxy_;
    std::optional<StoreHome> home_;
    std::optional<OpenStore> store_;
    std::optional<OtherClient> other_;
};

TEST_P(Storm, EndsInAgreement) {
    const auto end = std::chrono::steady_clock::now() + lengthOfStorm() / 2;
    for (int round = 1; round <= 2 || std::chrono::steady_clock::now() < end; ++round) {
        SCOPED_TRACE(testing::Message() << "round " << round);
        for (int i = 0; i < stepsOfRound; ++i) {
            if (i == stepsOfRound / 2 && round % 2 == 0) store_->run([this] { return other_->renumber(); });
            step();
        }
        growQuiet();
        expectAgreement();
        if (HasFailure()) return;
    }
    expectBodies();
}

INSTANTIATE_TEST_SUITE_P(Servers, Storm, testing::Values("", "MOVE,UIDPLUS,CONDSTORE"));

}}
