// What each command sends, and what it makes of the answer.

#include "protocols/IMAPClientFixture.h"

namespace velmo::test { namespace {

TEST(IMAPClientCommands, ReadMailboxesAndMessages) {
    SystemClock clock;
    forEachCut([&](Cut cut) {
        ScriptedServer server(signInScript("SPECIAL-USE LIST-EXTENDED CONDSTORE") + R"(
            C: b3 LIST "" "*" RETURN (SPECIAL-USE)
            S: * LIST (\HasNoChildren) "/" INBOX
            S: * LIST (\HasNoChildren \Trash) "/" "Papier \"korb\""
            S: * LIST () NIL {7}
            S: Odd box
            S: * LIST (broken) "/"
            S: * 7 EXISTS
            S: b3 OK
            C: b4 STATUS "Odd box" (MESSAGES UNSEEN UIDNEXT)
            S: * STATUS "Odd box" (UIDNEXT 9 MESSAGES 4 UNSEEN 2 X (1))
            S: b4 OK
            C: b5 SELECT "Odd \"box\"" (CONDSTORE)
            S: * OK [UIDNEXT 4392] Predicted next UID
            S: * 172 EXISTS
            S: * OK [UIDVALIDITY 3857529045] UIDs valid
            S: * OK [HIGHESTMODSEQ 715194045007] Highest
            S: b5 OK [READ-WRITE] done
            C: b6 UID FETCH 1:3,9 (UID FLAGS) (CHANGEDSINCE 12)
            S: * 1 FETCH (UID 9 FLAGS (\Seen) MODSEQ (65))
            S: * 2 EXPUNGE
            S: * 3 FETCH (UID 1 BODY[] {0}
            S:  FLAGS ())
            S: * 4 FETCH (UID 2 BODY[1]<0> {4+}
            S> a\r\n)
            S:  BINARY[2] ~{3}
            S> \0\xff}
            S: )
            S: b6 OK
            C: b7 UID SEARCH CHARSET UTF-8 TEXT "Bär"
            S: * SEARCH 5 3 x 99999999999
            S: * SEARCH
            S: b7 OK
            C: b8 EXAMINE "INBOX" (CONDSTORE)
            S: * OK [UIDNEXT] broken
            S: * OK [UIDVALIDITY x] broken
            S: b8 OK
            C: b9 FETCH 1:* (UID)
            S: b9 OK
            )",
                              tlsServer(cut));
        IMAPClientRig rig(server, clock);
        IMAPClient& client = *rig.client;
        rig.runtime.run([&]() -> Async<void> {
            co_await client.connect();
            const auto mailboxes = co_await client.listMailboxes();
            EXPECT_EQ(mailboxes.size(), 3U);
            if (mailboxes.size() != 3) co_return;
            EXPECT_EQ(mailboxes[0].role, MailboxRole::inbox);
            EXPECT_EQ(mailboxes[1].path, "Papier \"korb\"");
            EXPECT_EQ(mailboxes[1].role, MailboxRole::trash);
            EXPECT_EQ(mailboxes[2].path, "Odd box");
            EXPECT_FALSE(mailboxes[2].delimiter);

            const auto status = co_await client.status("Odd box");
            EXPECT_EQ(status.messages, 4);
            EXPECT_EQ(status.unseen, 2);
            EXPECT_EQ(status.uidNext, 9U);

            const auto results = co_await client.uidFetch("Odd \"box\"", "1:3,9", "UID FLAGS", 12);
            const auto state = client.selectedState().value_or(IMAPSelectedState{});
            EXPECT_EQ(state.exists, 172);
            EXPECT_EQ(state.uidValidity, 3857529045U);
            EXPECT_EQ(state.uidNext, 4392U);
            EXPECT_EQ(state.highestModSeq, 715194045007U);
            EXPECT_EQ(results.size(), 3U);
            if (results.size() != 3) co_return;
            EXPECT_EQ(results[0].modSeq, 65U);
            EXPECT_EQ(results[1].sections.at(""), "");
            EXPECT_TRUE(results[1].flags && results[1].flags->empty());
            EXPECT_EQ(results[2].sections.at("1"), "a\r\n)");
            EXPECT_EQ(results[2].sections.at("2"), Bytes("\0\xff}", 3));

            const auto found = co_await client.search("Odd \"box\"", "TEXT \"Bär\"");
            EXPECT_EQ(found, (std::vector<std::uint32_t>{5, 3}));
            const auto examined = co_await client.select("INBOX", IMAPClient::Access::readOnly);
            EXPECT_EQ(examined, IMAPSelectedState{});
            const auto none = co_await client.fetch("INBOX", "1:*", "UID");
            EXPECT_TRUE(none.empty());
        });
        EXPECT_EQ(server.verdict(), "");
    });
}

struct Change {
    const char* name;
    const char* capabilities;
    std::function<Async<void>(IMAPClient&)> operation;
    const char* transcript; ///< after the SELECT
};

std::vector<Change> changes() {
    const auto move = [](IMAPClient& client) -> Async<void> {
        const auto copied = co_await client.moveMessages("A", "1:2", "B \"c\"");
        EXPECT_EQ(copied.targets.size(), copied.uidValidity == 0 ? 0U : 2U);
        for (const auto& [before, after] : copied.targets) EXPECT_EQ(after, before + 300);
    };
    const auto erase = [](IMAPClient& client) { return client.deleteMessages("A", "7"); };
    return {
        {"move", "MOVE UIDPLUS", move,
         "C: b4 UID MOVE 1:2 \"B \\\"c\\\"\"\nS: * OK [COPYUID 9 1:2 302:301] moved\nS: b4 OK\n"},
        {"move without MOVE", "UIDPLUS", move, R"(
            C: b4 UID COPY 1:2 "B \"c\""
            S: b4 OK
            C: b5 UID STORE 1:2 +FLAGS.SILENT (\Deleted)
            S: b5 OK
            C: b6 UID EXPUNGE 1:2
            S: b6 OK)"},
        {"delete without UIDPLUS", "", erase, R"(
            C: b4 UID STORE 7 +FLAGS.SILENT (\Deleted)
            S: b4 OK
            C: b5 EXPUNGE
            S: * 1 EXPUNGE
            S: b5 OK)"},
        {"flags", "",
         [](IMAPClient& client) -> Async<void> {
             std::vector<std::string> flags{"\\Seen", "$Label"};
             co_await client.store("A", "7", IMAPClient::FlagChange::remove, std::move(flags));
         },
         "C: b4 UID STORE 7 -FLAGS.SILENT (\\Seen $Label)\nS: b4 OK\n"},
    };
}

TEST(IMAPClientCommands, ChangeMessagesWithWhatTheServerCan) {
    SystemClock clock;
    for (const Change& change : changes()) {
        SCOPED_TRACE(change.name);
        ScriptedServer server(signInScript(change.capabilities) + "C: b3 SELECT \"A\"\nS: b3 OK\n" + change.transcript,
                              tlsServer());
        IMAPClientRig rig(server, clock);
        rig.runtime.run([&]() -> Async<void> {
            co_await rig.client->connect();
            co_await change.operation(*rig.client);
        });
        EXPECT_EQ(server.verdict(), "");
    }
}

TEST(IMAPClientCommands, AppendAndCreate) {
    SystemClock clock;
    forEachCut([&](Cut cut) {
        ScriptedServer server(signInScript() + R"(
            C: b3 CREATE "Snoozed"
            S: b3 NO Mailbox exists
            C: b4 CREATE "Snoozed"
            S: b4 NO [ALREADYEXISTS] Schon da
            C: b5 CREATE "Snoozed"
            S: b5 NO [NOPERM] no
            C: b6 APPEND "Sent" (\Seen) {6}
            S: * 3 EXISTS
            S: + go
            C: a
            C: b
            C: 
            S: b6 OK [APPENDUID 38505 3955] done
            C: b7 APPEND "Sent" {0}
            S: +
            C: 
            S: b7 OK)",
                              tlsServer(cut));
        IMAPClientRig rig(server, clock);
        IMAPClient& client = *rig.client;
        rig.runtime.run([&]() -> Async<void> {
            co_await client.connect();
            co_await client.createMailbox("Snoozed");
            co_await client.createMailbox("Snoozed");
        });
        EXPECT_EQ(rig.failure([&] { return client.createMailbox("Snoozed"); }),
                  IMAPError::commandFailed("CREATE \"Snoozed\"", "no"));
        rig.runtime.run([&]() -> Async<void> {
            std::vector<std::string> flags{"\\Seen"};
            const auto uid = co_await client.append("Sent", std::move(flags), "a\r\nb\r\n");
            EXPECT_EQ(uid, 3955U);
            const auto none = co_await client.append("Sent", std::nullopt, "");
            EXPECT_FALSE(none);
        });
        EXPECT_EQ(server.verdict(), "");
    });
}

std::vector<IMAPFetchRequest> fiveRequests() {
    std::vector<IMAPFetchRequest> requests;
    for (int i = 1; i <= 5; ++i) requests.push_back({std::to_string(i), "UID"});
    return requests;
}

/// Four commands are under way when the first is answered.
const std::string fetchesInTurn = R"(
            C: b3 SELECT "A"
            S: b3 OK
            C: b4 UID FETCH 1 (UID)
            C: b5 UID FETCH 2 (UID)
            C: b6 UID FETCH 3 (UID)
            C: b7 UID FETCH 4 (UID)
            S: * 1 FETCH (UID 1)
            S: * 2 FETCH (UID 8)
            S: b4 OK
            C: b8 UID FETCH 5 (UID)
)";

TEST(IMAPClientCommands, FetchesSentAheadAreAnsweredInTurnAndARefusalLeavesTheSessionUsable) {
    SystemClock clock;
    forEachCut([&](Cut cut) {
        ScriptedServer server(signInScript() + fetchesInTurn + R"(
            S: * 2 FETCH (UID 2)
            S: b5 OK
            S: b6 NO gone
            S: * 4 FETCH (UID 4)
            S: b7 OK
            S: b8 BAD
            C~ b9 UID SEARCH *ALL
            S: b9 OK)",
                              tlsServer(cut));
        IMAPClientRig rig(server, clock);
        rig.runtime.run([&]() -> Async<void> { co_await rig.client->connect(); });
        std::vector<std::pair<std::size_t, std::size_t>> answered;
        const auto failure = rig.failure([&] {
            return rig.client->uidFetchEach("A", fiveRequests(),
                                            [&](std::size_t number, const std::vector<IMAPFetchResult>& results) {
                                                answered.emplace_back(number, results.size());
                                            });
        });
        EXPECT_EQ(failure, IMAPError::commandFailed("UID FETCH 3 (UID)", "gone"));
        EXPECT_EQ(answered, (std::vector<std::pair<std::size_t, std::size_t>>{{0, 2}, {1, 1}}));
        rig.runtime.run([&]() -> Async<void> { co_await rig.client->search("A", "ALL"); });
        EXPECT_EQ(server.verdict(), "");
    });
}

TEST(IMAPClientCommands, AProtocolErrorWithFetchesUnderWayEndsTheSession) {
    SystemClock clock;
    ScriptedServer server(signInScript() + fetchesInTurn + "S: + what?\n", tlsServer());
    IMAPClientRig rig(server, clock);
    rig.runtime.run([&]() -> Async<void> { co_await rig.client->connect(); });
    const auto ignore = [](std::size_t, const std::vector<IMAPFetchResult>&) {};
    EXPECT_EQ(rig.failure([&] { return rig.client->uidFetchEach("A", fiveRequests(), ignore); }),
              IMAPError::unexpected("continuation for b5"));
    EXPECT_FALSE(rig.client->isConnected());
    EXPECT_EQ(server.verdict(), "");
}

// --- IDLE --------------------------------------------------------------------------------------------------------

const std::string selectScript = "C: b3 SELECT \"INBOX\"\nS: b3 OK\nC: b4 IDLE\n";

TEST(IMAPClientIdle, EndsAtTheFirstChange) {
    SystemClock clock;
    forEachCut([&](Cut cut) {
        ScriptedServer server(signInScript("IDLE") + selectScript + R"(
            S: + idling
            S: * OK Still here
            S: * 3 VANISHED
            S: * 12 FETCH (FLAGS (\Seen) X {3}
            S> a\r\n)\r\n
            C: DONE
            S: * 13 EXISTS
            S: b4 OK
            C: b5 IDLE
            S: + idling
            C: DONE
            S: b5 NO whatever
            C: b6 IDLE
            S: * 14 EXISTS
            S: + idling
            C: DONE
            S: b6 OK)",
                              tlsServer(cut));
        IMAPClientRig rig(server, clock);
        rig.runtime.run([&]() -> Async<void> {
            co_await rig.client->connect();
            const bool changed = co_await rig.client->idle("INBOX", Duration(600'000));
            EXPECT_TRUE(changed);
            const bool again = co_await rig.client->idle("INBOX", Duration(1'000));
            EXPECT_FALSE(again);
            const bool before = co_await rig.client->idle("INBOX", Duration(600'000));
            EXPECT_TRUE(before) << "what came before the server was ready to wait";
        });
        EXPECT_EQ(server.verdict(), "");
    });
}

TEST(IMAPClientIdle, AQuietWaitEndsInTimeAndLosesNothingThatIsHalfReceived) {
    ManualClock clock;
    ScriptedServer server(signInScript("IDLE") + selectScript + R"(
        S: + idling
        S: * OK one
        S: * OK [X {5}
        S> ab
        C: DONE
        S: cde] two
        S: b4 OK
        C: b5 NOOP
        S: b5 OK)",
                          tlsServer());
    IMAPClientRig rig(server, clock);
    rig.runtime.run([&] { return rig.client->connect(); });
    std::optional<bool> changed;
    Task task(rig.runtime.executors().background, [client = rig.client, &changed]() -> Async<void> {
        changed = co_await client->idle("INBOX", Duration(600'000));
    });
    // The server waits for DONE, so all it had to say before is on its way.
    ASSERT_TRUE(eventually([&] { return clock.isDueIn(Duration(600'000)); }));
    clock.advance(Duration(600'000));
    rig.runtime.run([&] { return task.finished(); });
    EXPECT_EQ(changed, false);
    EXPECT_FALSE(rig.failure([&]() -> Async<void> { co_await rig.client->execute("NOOP"); }));
    EXPECT_EQ(server.verdict(), "");
}

TEST(IMAPClientIdle, WhenCancelledLeavesTheSessionUsable) {
    ManualClock clock;
    ScriptedServer server(signInScript("IDLE") + selectScript + R"(
        S: + idling
        C: DONE
        PAUSE
        S: b4 OK
        C: b5 NOOP
        S: b5 OK)",
                          tlsServer());
    IMAPClientRig rig(server, clock);
    rig.runtime.run([&] { return rig.client->connect(); });
    bool wentOn = false;
    Task task(rig.runtime.executors().background, [client = rig.client, &wentOn]() -> Async<void> {
        auto idle = [&client]() -> Async<void> {
            static_cast<void>(co_await client->idle("INBOX", Duration(600'000)));
        };
        co_await client->locked(std::move(idle));
        wentOn = true;
    });
    ASSERT_TRUE(eventually([&] { return clock.isDueIn(Duration(600'000)); }));
    task.cancel();
    ASSERT_TRUE(eventually([&] { return server.received().ends_with("DONE\r\n"); }));
    task.cancel();
    server.proceed();
    rig.runtime.run([&] { return task.finished(); });
    EXPECT_FALSE(wentOn);
    EXPECT_FALSE(rig.failure([&]() -> Async<void> {
        co_await rig.client->locked([&]() -> Async<void> { co_await rig.client->execute("NOOP"); });
    }));
    EXPECT_EQ(server.verdict(), "");
}

TEST(IMAPClientIdle, WhenCancelledDoesNotWaitForAServerThatDoesNotEndIt) {
    for (const char* after : {"PAUSE\n", "S: * OK 1\nS: * OK 2\nPAUSE\n"}) {
        ManualClock clock;
        ScriptedServer server(signInScript("IDLE") + selectScript + "S: + idling\nC: DONE\n" + after, tlsServer());
        IMAPClientRig rig(server, clock);
        rig.runtime.run([&] { return rig.client->connect(); });
        Task task(rig.runtime.executors().background, [client = rig.client]() -> Async<void> {
            static_cast<void>(co_await client->idle("INBOX", Duration(600'000)));
        });
        ASSERT_TRUE(eventually([&] { return clock.isDueIn(Duration(600'000)); }));
        task.cancel();
        ASSERT_TRUE(eventually([&] { return server.received().ends_with("DONE\r\n"); }));
        ASSERT_TRUE(eventually([&] { return clock.isDueIn(Duration(3'000)); }));
        clock.advance(Duration(3'000));
        rig.runtime.run([&] { return task.finished(); });
        EXPECT_FALSE(rig.client->isConnected());
    }
}

TEST(IMAPClientIdle, FailsWithoutTheCapabilityAndWhenTheServerLeaves) {
    SystemClock clock;
    ScriptedServer without(signInScript() + "C: b3 SELECT \"INBOX\"\nS: b3 OK\n", tlsServer());
    ScriptedServer leaving(signInScript("IDLE") + selectScript + "S: + idling\nS: * BYE bye\nCLOSE\n", tlsServer());
    ScriptedServer refusing(signInScript("IDLE") + selectScript + "S: b4 NO no\n", tlsServer());
    const auto idle = [&](ScriptedServer& server) {
        IMAPClientRig rig(server, clock);
        rig.runtime.run([&] { return rig.client->connect(); });
        return rig.failure([&]() -> Async<void> { co_await rig.client->idle("INBOX", Duration(60'000)); });
    };
    EXPECT_EQ(idle(without), IMAPError::disconnected());
    EXPECT_EQ(idle(leaving), IMAPError::connection(MailConnectionError::closed("localhost")));
    EXPECT_EQ(idle(refusing), IMAPError::unexpected("IDLE"));
}

TEST(IMAPSyntax, UIDSetsAreCompact) {
    const struct {
        std::vector<std::uint32_t> uids;
        const char* set;
    } cases[] = {
        {{}, ""}, {{7}, "7"}, {{3, 1, 2, 2, 9}, "1:3,9"}, {{4294967295U, 4294967294U, 0}, "0,4294967294:4294967295"}};
    for (const auto& [uids, set] : cases) EXPECT_EQ(uidSet(uids), set);
}

}}
