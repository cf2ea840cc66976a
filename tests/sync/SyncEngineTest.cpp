#include "sync/SyncEngine.h"

#include "protocols/IMAPClientFixture.h"
#include "sync/FetchedMessages.h"

#include <atomic>
#include <map>
#include <set>

namespace velmo::test { namespace {

const std::string items = "UID FLAGS INTERNALDATE RFC822.SIZE ENVELOPE BODYSTRUCTURE "
                          "BODY.PEEK[HEADER.FIELDS (REFERENCES LIST-UNSUBSCRIBE LIST-ID PRECEDENCE)]";

/// An engine for a scripted server.
struct Rig {
    Rig(const std::string& transcript, Clock& clock, Cut cut = {})
        : server(transcript, tlsServer(cut)),
          engine(std::make_shared<SyncEngine>(
              UUID(), ServerConfig("localhost", server.port(), ServerConfig::Security::tls),
              [this]() -> Async<MailCredential> {
                  ++credentials;
                  co_return MailCredential::password("ann", "secret");
              },
              clock, runtime.executors().io)) {}

    ScriptedServer server;
    Runtime runtime;
    std::atomic<int> credentials = 0;
    std::shared_ptr<SyncEngine> engine;
};

std::string selectScript(const std::string& answers, bool condstore = false) {
    return "C: b3 SELECT \"INBOX\"" + std::string(condstore ? " (CONDSTORE)" : "") + "\n" + answers + "\nS: b3 OK\n";
}

SyncState stored(std::int64_t uidValidity, std::int64_t uidNext, std::int64_t modSeq,
                 std::vector<std::uint32_t> known) {
    SyncState state;
    state.uidValidity = uidValidity;
    state.uidNext = uidNext;
    state.highestModSeq = modSeq;
    state.knownUIDs = std::move(known);
    return state;
}

SyncState movedThere(SyncState state, std::vector<std::uint32_t> uids, std::int64_t uidValidity) {
    state.arrived = std::move(uids);
    state.arrivedUIDValidity = uidValidity;
    return state;
}

SyncState inPart(SyncState state) {
    state.isPartial = true;
    return state;
}

std::vector<std::uint32_t> uidsOf(const std::vector<SyncedMessage>& messages) {
    std::vector<std::uint32_t> uids;
    for (const SyncedMessage& message : messages) uids.push_back(message.uid);
    return uids;
}

struct Scenario {
    const char* name;
    const char* capabilities;
    SyncState held;
    std::string transcript; ///< from the SELECT on
    std::vector<std::uint32_t> newUIDs;
    std::map<std::uint32_t, std::set<std::string>> flagChanges;
    std::vector<std::uint32_t> vanished;
    bool isReset = false;
};

std::vector<Scenario> scenarios() {
    const std::string uids = "S: * OK [UIDVALIDITY 7]\nS: * OK [UIDNEXT 10]\n";
    const auto first = [&](const std::string& exists, const std::string& set, const std::string& more = "") {
        return selectScript(more + "S: * " + exists + " EXISTS") + "C: b4 FETCH " + set + " (" + items +
               ")\nS: * 200 FETCH (UID 9 RFC822.SIZE 1)\nS: * 2 FETCH (FLAGS ())\nS: b4 OK\n";
    };
    const std::string search = "UID SEARCH UID 3:4,8\nS: * SEARCH 8 3\n";
    const std::string modSeq = "S: * 3 EXISTS\nS: * OK [HIGHESTMODSEQ 50]\n" + uids;
    return {
        {"first sync of 150", "", {}, first("150", "1:*"), {9}, {}, {}},
        {"first sync of 200", "", {}, first("200", "1:*"), {9}, {}, {}},
        {"first sync of 201", "", {}, first("201", "2:*"), {9}, {}, {}},
        {"empty, never synced", "", {}, selectScript(uids), {}, {}, {}},
        {"all gone", "", stored(7, 10, 0, {3, 4}), selectScript(uids), {}, {}, {3, 4}},
        {"reset and empty", "", stored(6, 10, 0, {3, 4}), selectScript(uids), {}, {}, {}, true},
        {"reset starts afresh",
         "CONDSTORE X-GM-EXT-1",
         stored(6, 10, 50, {3, 4}),
         selectScript(modSeq, true) + "C: b4 FETCH 1:* (" + items +
             " X-GM-THRID)\nS: * 1 FETCH (UID 1 X-GM-THRID 5 RFC822.SIZE 1)\nS: b4 OK\n",
         {1},
         {},
         {},
         true},
        {"an unknown validity is no reset; nothing new; flags of all",
         "",
         stored(0, 10, 0, {3, 4, 8}),
         selectScript("S: * 3 EXISTS\n" + uids) +
             "C: b4 UID FETCH 3:4,8 (UID FLAGS)\nS: * 1 FETCH (UID 3 FLAGS (\\Seen))\nS: * 2 FETCH (UID 8)\n"
             "S: b4 OK\nC: b5 " +
             search + "S: b5 OK\n",
         {},
         {{3, {"\\Seen"}}},
         {4}},
        {"no UIDNEXT, so it asks, and drops what it knows",
         "",
         stored(7, 9, 0, {3, 4, 8}),
         selectScript("S: * 3 EXISTS\nS: * OK [UIDVALIDITY 7]") + "C: b4 UID FETCH 9:* (" + items +
             ")\nS: * 3 FETCH (UID 8)\nS: b4 OK\nC: b5 UID FETCH 3:4,8 (UID FLAGS)\nS: b5 OK\nC: b6 " + search +
             "S: b6 OK\n",
         {},
         {},
         {4}},
        {"same modification sequence, no flags",
         "CONDSTORE",
         stored(7, 10, 50, {3, 4, 8}),
         selectScript(modSeq, true) + "C: b4 " + search + "S: b4 OK\n",
         {},
         {},
         {4}},
        {"changed flags only",
         "CONDSTORE",
         stored(7, 10, 40, {3, 4, 8}),
         selectScript(modSeq, true) +
             "C: b4 UID FETCH 3:4,8 (UID FLAGS) (CHANGEDSINCE 40)\nS: * 3 FETCH (UID 8 FLAGS () MODSEQ (41))\n"
             "S: b4 OK\nC: b5 " +
             search + "S: b5 OK\n",
         {},
         {{8, {}}},
         {4}},
        {"another client's flags come along, and a message in two pieces",
         "",
         stored(7, 4, 0, {1, 2, 3}),
         selectScript("S: * 6 EXISTS\nS: * OK [UIDVALIDITY 7]\nS: * OK [UIDNEXT 7]\n") + "C: b4 UID FETCH 4:* (" +
             items +
             ")\nS: * 2 FETCH (UID 2 FLAGS (\\Seen))\nS: * 4 FETCH (UID 4 FLAGS (\\Seen))\n"
             "S: * 5 FETCH (UID 5 FLAGS ())\nS: * 4 FETCH (UID 4 RFC822.SIZE 9)\nS: b4 OK\n"
             "C: b5 UID FETCH 5 (" +
             items +
             ")\nS: * 5 FETCH (UID 5 RFC822.SIZE 8)\nS: b5 OK\n"
             "C: b6 UID FETCH 1:3 (UID FLAGS)\nS: b6 OK\n"
             "C: b7 UID SEARCH UID 1:3\nS: * SEARCH 1 2 3\nS: b7 OK\n",
         {4, 5},
         {{2, {"\\Seen"}}, {5, {}}},
         {}},
        {"a message that the server can't read hides none beside it",
         "",
         stored(7, 4, 0, {3}),
         selectScript("S: * 5 EXISTS\nS: * OK [UIDVALIDITY 7]\nS: * OK [UIDNEXT 8]\n") + "C: b4 UID FETCH 4:* (" +
             items +
             ")\nS: b4 NO damaged\nC: b5 UID SEARCH UID 4:*\nS: * SEARCH 4 5 6 7\nS: b5 OK\n"
             "C: b6 UID FETCH 4:7 (" +
             items +
             ")\nS: b6 NO damaged\n"
             "C: b7 UID FETCH 4:5 (" +
             items +
             ")\nS: b7 NO damaged\n"
             "C: b8 UID FETCH 4 (" +
             items +
             ")\nS: * 2 FETCH (UID 4 RFC822.SIZE 9)\nS: b8 OK\n"
             "C: b9 UID FETCH 5 (" +
             items +
             ")\nS: b9 NO damaged\n"
             "C: b10 UID FETCH 6:7 (" +
             items +
             ")\nS: * 4 FETCH (UID 6 RFC822.SIZE 9)\n"
             "S: * 5 FETCH (UID 7 RFC822.SIZE 9)\nS: b10 OK\n"
             "C: b11 UID FETCH 3 (UID FLAGS)\nS: b11 OK\nC: b12 UID SEARCH UID 3\nS: * SEARCH 3\nS: b12 OK\n",
         {4, 5, 6, 7},
         {},
         {}},
        {"a filling reaches down to what was moved there",
         "",
         movedThere(SyncState(), {3, 9}, 7),
         first("201", "2:*", "S: * OK [UIDVALIDITY 7]\n") + "C: b5 UID SEARCH UID 3:*\nS: * SEARCH 3 4 9\nS: b5 OK\n" +
             "C: b6 UID FETCH 3:4 (" + items +
             ")\nS: * 3 FETCH (UID 3 RFC822.SIZE 9)\nS: * 4 FETCH (UID 4 RFC822.SIZE 9)\nS: b6 OK\n",
         {9, 3, 4},
         {},
         {}},
        {"of a mailbox that is held in part only what was moved there, and flags",
         "",
         inPart(movedThere(stored(7, 4, 0, {3}), {3, 9}, 7)),
         selectScript("S: * 300 EXISTS\nS: * OK [UIDVALIDITY 7]\nS: * OK [UIDNEXT 400]\n") + "C: b4 UID FETCH 9 (" +
             items +
             ")\nS: * 9 FETCH (UID 9 RFC822.SIZE 9)\nS: b4 OK\nC: b5 UID FETCH 3 (UID FLAGS)\n"
             "S: * 3 FETCH (UID 3 FLAGS ())\nS: b5 OK\nC: b6 UID SEARCH UID 3\nS: * SEARCH 3\nS: b6 OK\n",
         {9},
         {{3, {}}},
         {}},
        {"what was moved to a mailbox that has new numbers is not looked for there",
         "",
         inPart(movedThere(stored(6, 4, 0, {3}), {9}, 6)),
         selectScript("S: * 300 EXISTS\nS: * OK [UIDVALIDITY 7]\n"),
         {},
         {},
         {},
         true},
        {"no modification sequences any more, flags of all",
         "CONDSTORE",
         stored(7, 10, 40, {3, 4, 8}),
         selectScript("S: * 3 EXISTS\nS: * OK [NOMODSEQ] none\n" + uids, true) +
             "C: b4 UID FETCH 3:4,8 (UID FLAGS)\nS: * 3 FETCH (UID 8 FLAGS ())\nS: b4 OK\nC: b5 " + search +
             "S: b5 OK\n",
         {},
         {{8, {}}},
         {4}},
    };
}

TEST(SyncEngine, TellsWhatChangedInAMailbox) {
    SystemClock clock;
    for (const Scenario& scenario : scenarios()) {
        SCOPED_TRACE(scenario.name);
        Rig rig(signInScript(scenario.capabilities) + scenario.transcript, clock);
        const MailboxDelta delta = rig.runtime.run([&] { return rig.engine->syncMailbox("INBOX", scenario.held); });
        EXPECT_EQ(uidsOf(delta.newMessages), scenario.newUIDs);
        EXPECT_EQ(delta.flagChanges, scenario.flagChanges);
        EXPECT_EQ(delta.vanished, scenario.vanished);
        EXPECT_EQ(delta.isReset, scenario.isReset);
        EXPECT_EQ(rig.server.verdict(), "");
    }
}

TEST(SyncEngine, ReadsMessagesWithTheirSnippets) {
    SystemClock clock;
    forEachCut([&](Cut cut) {
        const std::string plainPart = R"(("TEXT" "PLAIN" ("CHARSET" "utf-8") NIL NIL "BASE64" 40 1))";
        const std::string htmlPart = R"(("TEXT" "HTML" NIL NIL NIL "QUOTED-PRINTABLE" 40 1))";
        const std::string attached =
            R"(("TEXT" "PLAIN" NIL NIL NIL "7BIT" 40 1 NIL ("ATTACHMENT" ("FILENAME" "a.txt"))))";
        Rig rig(signInScript() + "C: b3 SELECT \"INBOX\"\nS: b3 OK\n" + "C: b4 UID SEARCH UID 1:19\n" +
                    "S: * SEARCH 12 3 11 10\nS: b4 OK\nC: b5 UID FETCH 10:12 (" + items + ")\n" +
                    "S: * 1 FETCH (UID 10 FLAGS (\\Seen $X) RFC822.SIZE 321 INTERNALDATE \" 1-Mar-2024 10:00:00 +0100\""
                    " BODYSTRUCTURE " +
                    plainPart + " BODY[HEADER.FIELDS (REFERENCES LIST-ID)] {47}\n" +
                    "S: References: <a@b>\nS:  <c@d>\nS: Precedence: Bulk\nS: \nS: )\n" +
                    "S: * 2 FETCH (UID 11 BODYSTRUCTURE (" + attached + htmlPart +
                    " \"MIXED\") ENVELOPE (\"Fri, 1 Mar 2024 12:00:00 +0000\" {9}\nS: =?u?q?x?= ((NIL NIL \"a\" \"b\"))"
                    " NIL NIL NIL NIL NIL NIL \"<m@x>\"))\n" +
                    "S: * 3 FETCH (UID 12 BODYSTRUCTURE " + attached + ")\nS: b5 OK\n" +
                    // Base64 that stops inside a group, and a line break inside it.
                    "C: b6 UID FETCH 10 (UID BODY.PEEK[1]<0.1500>)\n" +
                    "S: * 1 FETCH (UID 10 BODY[1]<0> {17}\nS: R3LDvMOf\nS: ZSBhd\nS: )\nS: b6 OK\n" +
                    "C: b7 UID FETCH 11 (UID BODY.PEEK[2]<0.8000>)\n" +
                    "S: * 2 FETCH (UID 11 BODY[2]<0> \"<p>caf=C3=A9</p>\")\nS: b7 OK\n",
                clock, cut);
        const auto older = rig.runtime.run([&] { return rig.engine->olderUIDs("INBOX", 20); });
        EXPECT_EQ(older, (std::vector<std::uint32_t>{3, 10, 11, 12}));
        const std::vector<std::uint32_t> wanted{10, 11, 12};
        const auto messages = rig.runtime.run([&] { return rig.engine->fetchMessages("INBOX", 0, wanted); });
        ASSERT_EQ(uidsOf(messages), (std::vector<std::uint32_t>{10, 11, 12})) << rig.server.verdict();
        EXPECT_EQ(messages[0].flags, (std::set<std::string>{"$X", "\\Seen"}));
        EXPECT_EQ(messages[0].size, 321);
        EXPECT_EQ(iso8601(messages[0].date), "2024-03-01T09:00:00Z");
        EXPECT_EQ(messages[0].references, (std::vector<std::string>{"<a@b>", "<c@d>"}));
        EXPECT_TRUE(messages[0].isBulk);
        EXPECT_EQ(messages[0].snippet, "Grüße a");
        EXPECT_EQ(iso8601(messages[1].date), "2024-03-01T12:00:00Z");
        EXPECT_FALSE(messages[1].isBulk);
        EXPECT_EQ(messages[1].snippet, "café");
        EXPECT_FALSE(messages[2].snippet);
        EXPECT_EQ(rig.server.verdict(), "");
    });
}

TEST(SyncEngine, ABeginningThatStopsAnywhereBecomesTheSameText) {
    const struct {
        const char* encoding;
        const char* charset;
        Bytes whole;
    } cases[] = {
        {"8bit", "utf-8", "Grüße, 日本語"},
        {"8bit", "", "Grüße, 日本語"},
        {"8bit", "us-ascii", "Grüße, 日本語"},
        {"base64", "UTF-8", "R3LDvMOfZSwg5pel\r\n5pys6Kqe"},
        {"quoted-printable", "utf-8", "Gr=C3=BC=C3=9Fe, =\r\n=E6=97=A5=E6=9C=AC=E8=AA=9E"},
        {"8bit", "shift_jis", "Tokyo, \x93\xFA\x96\x7B\x8C\xEA"},
    };
    for (const auto& [encoding, charset, whole] : cases) {
        IMAPBodyPart part;
        part.subtype = "plain";
        part.encoding = encoding;
        part.size = static_cast<std::int64_t>(whole.size());
        if (*charset != '\0') part.parameters["charset"] = charset;
        const std::string text = snippetOf(whole, part);
        EXPECT_EQ(text.find("本語"), text.size() - 6) << encoding << charset;
        for (std::size_t size = 0; size < whole.size(); ++size) {
            const std::string beginning = snippetOf(BytesView(whole).substr(0, size), part);
            EXPECT_TRUE(text.starts_with(beginning)) << encoding << charset << size << ": " << beginning;
        }
    }
    // What is no cut is taken as it stands.
    IMAPBodyPart part;
    part.parameters["charset"] = "utf-8";
    EXPECT_EQ(snippetOf("caf\xE9", part), "café");
    part.encoding = "quoted-printable";
    EXPECT_EQ(snippetOf("a=b", part), "a=b");
}

TEST(SyncEngine, AsksForSnippetsInChunksBySection) {
    SystemClock clock;
    std::string answers;
    for (int uid = 1; uid <= 101; ++uid)
        answers += "S: * " + std::to_string(uid) + " FETCH (UID " + std::to_string(uid) +
                   " BODYSTRUCTURE (\"TEXT\" \"PLAIN\" NIL NIL NIL \"7BIT\" 1 1))\n";
    Rig rig(signInScript() + selectScript("S: * 101 EXISTS") + "C: b4 FETCH 1:* (" + items + ")\n" + answers +
                "S: b4 OK\nC: b5 UID FETCH 1:100 (UID BODY.PEEK[1]<0.1500>)\nS: * 7 FETCH (UID 7 BODY[1]<0> \"hi\")\n"
                "S: b5 OK\nC: b6 UID FETCH 101 (UID BODY.PEEK[1]<0.1500>)\nS: b6 NO later\n",
            clock);
    // Refused, they are no reason to have no messages.
    const MailboxDelta delta = rig.runtime.run([&] { return rig.engine->syncMailbox("INBOX", {}); });
    ASSERT_EQ(delta.newMessages.size(), 101U);
    EXPECT_EQ(delta.newMessages[6].snippet, "hi");
    EXPECT_FALSE(delta.newMessages[100].snippet);
    EXPECT_EQ(rig.server.verdict(), "");
}

TEST(SyncEngine, ListsMailboxesWithTheCountsThatItCanGet) {
    SystemClock clock;
    Rig rig(signInScript() + R"(
        C: b3 LIST "" "*"
        S: * LIST () "/" "INBOX"
        S: * LIST (\NoSelect) "/" "[Mail]"
        S: * LIST () "/" "Broken"
        S: b3 OK
        C: b4 STATUS "INBOX" (MESSAGES UNSEEN UIDNEXT)
        S: * STATUS INBOX (MESSAGES 5 UNSEEN 2)
        S: b4 OK
        C: b5 STATUS "Broken" (MESSAGES UNSEEN UIDNEXT)
        S: b5 NO broken
        C: b6 LOGOUT
        S: * BYE bye
        S: b6 OK
        )",
            clock);
    rig.runtime.run([&]() -> Async<void> {
        const auto listed = co_await rig.engine->listMailboxes();
        EXPECT_EQ(listed.size(), 3U);
        if (listed.size() != 3) co_return;
        EXPECT_EQ(listed[0].messages, 5);
        EXPECT_EQ(listed[0].unseen, 2);
        EXPECT_EQ(listed[2].messages, 0);
        co_await rig.engine->disconnect();
    });
    EXPECT_EQ(rig.credentials, 1);
    EXPECT_EQ(rig.server.verdict(), "");
}

TEST(SyncEngine, ActsOnMessagesByTheirIDs) {
    SystemClock clock;
    Rig rig(signInScript("MOVE X-GM-EXT-1") + R"(
        C: b3 SELECT "Snoozed"
        S: * OK [UIDVALIDITY 7] valid
        S: b3 OK
        C: b4 UID SEARCH HEADER Message-ID "<a\"b@c>"
        S: * SEARCH 6 4 5
        S: b4 OK
        C: b5 UID FETCH 4:6 (UID ENVELOPE)
        S: * 1 FETCH (UID 4 ENVELOPE (NIL NIL NIL NIL NIL NIL NIL NIL NIL "<a\"b@c>"))
        S: * 2 FETCH (UID 5 ENVELOPE (NIL NIL NIL NIL NIL NIL NIL NIL NIL "<x-<a\"b@c>>"))
        S: * 3 FETCH (UID 7 ENVELOPE (NIL NIL NIL NIL NIL NIL NIL NIL NIL "<a\"b@c>"))
        S: * 4 FETCH (UID 6 FLAGS (\Seen))
        S: b5 OK
        C: b6 UID STORE 4 -FLAGS.SILENT (\Seen)
        S: b6 OK
        C: b7 UID MOVE 4 "INBOX"
        S: b7 OK
        C: b8 UID SEARCH HEADER Message-ID "<x@c>"
        S: * SEARCH
        S: b8 OK
        C: b9 UID SEARCH X-GM-RAW "from:\"me\""
        S: * SEARCH 2
        S: b9 OK
        C: b10 UID FETCH 1:2 (UID BODY.PEEK[])
        S: * 1 FETCH (UID 2 BODY[] {3}
        S> a\r\n
        S: )
        S: b10 OK
        C: b11 UID FETCH 9 (UID BODY.PEEK[])
        S: * 1 FETCH (UID 2 BODY[] "x")
        S: * 2 FETCH (UID 9 BODY[] NIL)
        S: b11 OK
        C: b12 UID FETCH 2 (UID BODY.PEEK[])
        S: * 2 FETCH (UID 2 BODY[] "of another message")
        S: b12 OK
        )",
            clock);
    SyncEngine& engine = *rig.engine;
    rig.runtime.run([&]() -> Async<void> {
        std::vector<std::string> flags{"\\Seen"};
        const bool moved = co_await engine.moveByMessageID("Snoozed", "<a\"b@c>", "INBOX", std::move(flags));
        EXPECT_TRUE(moved);
        const bool erased = co_await engine.deleteByMessageID("Snoozed", "<x@c>");
        EXPECT_FALSE(erased);
        for (const char* odd : {"", " ", "<a b@c>", "<a@b>\r\nC: x LOGOUT", "<\xc3\xa4@b>"}) {
            std::string messageID(odd);
            const bool found = co_await engine.deleteByMessageID("Snoozed", std::move(messageID));
            EXPECT_FALSE(found) << odd;
        }
        const auto hits = co_await engine.remoteSearch("Snoozed", "from:\"me\"");
        EXPECT_EQ(hits, std::vector<std::uint32_t>{2});
        std::vector<std::uint32_t> uids{2, 1};
        const auto raw = co_await engine.fetchRawMessages("Snoozed", 7, std::move(uids));
        EXPECT_EQ(raw, (std::map<std::uint32_t, Bytes>{{2, "a\r\n"}}));
        const auto none = co_await engine.olderUIDs("Snoozed", 1);
        EXPECT_TRUE(none.empty());
    });
    const std::map<std::pair<std::int64_t, std::uint32_t>, const char*> failures{
        {{7, 9}, "message 9 is gone"}, {{8, 2}, "the messages have new numbers"}};
    for (const auto& [wanted, sentence] : failures) {
        try {
            rig.runtime.run([&] { return engine.fetchRawMessage("Snoozed", wanted.first, wanted.second); });
            ADD_FAILURE() << sentence;
        } catch (const IMAPError& error) {
            EXPECT_EQ(error, IMAPError::unexpected(sentence));
        }
    }
    EXPECT_EQ(rig.server.verdict(), "");
}

TEST(SyncEngine, WaitsOnASessionOfItsOwnAndConnectsAgainAfterAFailure) {
    SystemClock clock;
    const std::string start = signInScript("IDLE") + "C: b3 SELECT \"INBOX\"\nS: b3 OK\nC: b4 IDLE\nS: + idling\n";
    Rig rig(start + "CLOSE\n---\n" + start + "S: * 4 EXISTS\nC: DONE\nS: b4 OK\n", clock);
    const auto wait = [&] { return rig.engine->waitForChanges("INBOX", {}, Duration(60'000)); };
    EXPECT_THROW(rig.runtime.run(wait), IMAPError);
    EXPECT_TRUE(rig.runtime.run(wait));
    EXPECT_EQ(rig.credentials, 2);
    EXPECT_EQ(rig.server.verdict(), "");
}

TEST(SyncEngine, WithoutIdleWaitsShortlyAndAsksForASync) {
    ManualClock clock;
    Rig rig(signInScript(), clock);
    std::optional<bool> changed;
    Task task(rig.runtime.executors().background, [engine = rig.engine, &changed]() -> Async<void> {
        changed = co_await engine->waitForChanges("INBOX", {}, Duration(600'000));
    });
    ASSERT_TRUE(eventually([&] { return clock.isDueIn(Duration(120'000)); }));
    clock.advance(Duration(120'000));
    rig.runtime.run([&] { return task.finished(); });
    EXPECT_EQ(changed, true);
}

}}
