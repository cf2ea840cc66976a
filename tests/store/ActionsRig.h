#pragma once

#include "store/MessageActions.h"
#include "store/StoreRig.h"

#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

namespace velmo::test {

/// Message actions over the parts of a store.
struct ActionsRig {
    using Records = MessageActions::Records;

    template <class... Server>
    explicit ActionsRig(const Server&... server)
        : rig(server..., clock),
          sync(std::make_shared<AccountSync>(rig.environment, rig.status, rig.directoryOfMailboxes, rig.engines,
                                             AccountSync::Hooks())) {}

    ~ActionsRig() {
        actions.reset();
        // A scripted server says no farewell.
        if (isReal_) rig.run([this] { return rig.engines.disconnectAll(); });
    }

    /// The mailboxes of which a sync is asked for are noted, and brought up to date where that is possible.
    enum class Server { real, scripted };
    void start(Server server) {
        isReal_ = server == Server::real;
        MessageActions::Hooks hooks;
        hooks.syncMailbox = [this](MailAccount account, std::string path) -> Async<void> {
            synced.push_back(path);
            if (isReal_) co_await sync->syncMailboxAfresh(account, path);
        };
        hooks.listMailboxes = [this](MailAccount account) { return sync->listMailboxes(std::move(account)); };
        hooks.selectNext = [this](const std::set<std::int64_t>& leaving) { left = leaving; };
        actions = std::make_shared<MessageActions>(rig.environment, rig.status, rig.directoryOfMailboxes, rig.engines,
                                                   std::move(hooks));
    }

    void finish() {
        rig.run([this] { return actions->finished(); });
    }

    /// Lets the time to undo run out, and the server answer.
    void letTimePass() {
        ASSERT_TRUE(rig.eventually([&] { return clock->isDueIn(Duration(5'000)); }));
        clock->advance(Duration(5'000));
        ASSERT_TRUE(rig.eventually([&] { return banner() != "undo"; }));
        finish();
    }

    /// "undo", the words of an error, or "" without a banner.
    std::string banner() const {
        const auto& showing = *rig.status.banner;
        return !showing ? "" : showing->canUndo ? "undo" : showing->text;
    }
    std::string title() const { return rig.status.banner->has_value() ? (*rig.status.banner)->text : ""; }

    Records visible(const std::string& path) {
        Records records = rig.held(path);
        std::erase_if(records, [&](const auto& record) { return rig.status.hidden->contains(record.id); });
        return records;
    }
    std::int64_t unread(const std::string& path) {
        return rig.context->mailboxes.find({rig.account.id, path})->unreadCount;
    }

    std::shared_ptr<ManualClock> clock = std::make_shared<ManualClock>();
    StoreRig rig;
    std::shared_ptr<AccountSync> sync;
    std::shared_ptr<MessageActions> actions;
    std::vector<std::string> synced;
    std::set<std::int64_t> left;

  private:
    bool isReal_ = false;
};

}
