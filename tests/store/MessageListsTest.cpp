#include "store/MessageLists.h"

#include "store/ListsFixture.h"

namespace velmo { namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class MessageListsTest : public test::ListsFixture {
  protected:
    static std::vector<std::int64_t> idsOf(const std::vector<MessageRecord>& records) {
        std::vector<std::int64_t> ids;
        for (const auto& record : records) ids.push_back(record.id);
        return ids;
    }

    /// All pages of a list, one behind the other.
    std::vector<std::int64_t> walk(MessagePageRequest request) {
        std::vector<std::int64_t> ids;
        for (;;) {
            auto [records, next] = lists->page(request);
            EXPECT_LE(records.size(), request.limit);
            for (const auto id : idsOf(records)) ids.push_back(id);
            if (!next) return ids;
            request.after = next;
        }
    }

    MessagePageRequest request(const MailboxKey& mailbox) { return MessagePageRequest(*lists->mailbox(mailbox), 7); }
    MessagePageRequest request(const UnifiedMailbox& view) { return MessagePageRequest(lists->resolve(view), 7); }
};

TEST_F(MessageListsTest, UnifiedViewsTakeTheMailboxesOfEveryAccount) {
    addMailbox({first, "Lists"}, MailboxRole::other);
    addMailbox({second, "Lists"}, MailboxRole::other);
    addMailbox({second, "Junk"}, MailboxRole::junk);
    addMailbox({second, "Sent"}, MailboxRole::sent);
    addMailbox({second, "Bin"}, MailboxRole::trash);
    addLabel("work", "Work");
    const auto a = add(inbox1, 30, {.labels = "work"});
    const auto b = add(inbox2, 20, {.category = "promotions"});
    const auto c = add({second, "Junk"}, 40, {.labels = "work"});
    add({second, "Bin"}, 41, {.labels = "work"});
    const auto d = add({first, "Lists"}, 25, {.labels = "cat:social|work", .isSeen = true});
    const auto e = add({second, "Lists"}, 26);
    const auto f = add({second, "Sent"}, 5);

    EXPECT_THAT(walk(request(UnifiedMailbox::mailbox(MailboxRole::inbox))), ElementsAre(a, b));
    EXPECT_THAT(walk(request(UnifiedMailbox::folder("Lists"))), ElementsAre(e, d));
    EXPECT_THAT(walk(request(UnifiedMailbox::important())), ElementsAre(a));
    EXPECT_THAT(walk(request(UnifiedMailbox::mailbox(MailboxRole::junk))), ElementsAre(c));
    EXPECT_THAT(walk(request(UnifiedMailbox::label("work"))), ElementsAre(a, d)) << "never from spam and trash";
    EXPECT_THAT(walk(MessagePageRequest(*lists->label("work", first))), ElementsAre(a, d));
    EXPECT_THAT(walk(MessagePageRequest(*lists->label("work", second))), IsEmpty());

    const auto work = lists->resolve(UnifiedMailbox::label("work"));
    EXPECT_EQ(work.title, "Work");
    EXPECT_THAT(work.excludedPaths, ElementsAre("Bin", "Junk"));
    EXPECT_EQ(lists->resolve(UnifiedMailbox::mailbox(MailboxRole::inbox)).title, "All Inboxes");
    EXPECT_EQ(lists->resolve(UnifiedMailbox::label("followup")).title, "Waiting for Reply");
    EXPECT_FALSE(lists->label("gone", first));
    EXPECT_FALSE(lists->mailbox({first, "gone"}));

    EXPECT_TRUE(showsRecipients(lists->resolve(UnifiedMailbox::mailbox(MailboxRole::sent))));
    EXPECT_TRUE(showsRecipients(*lists->mailbox({second, "Sent"})));
    EXPECT_TRUE(showsRecipients(*lists->label("followup", first)));
    EXPECT_FALSE(showsRecipients(*lists->label("work", first)));
    EXPECT_FALSE(showsRecipients(lists->resolve(UnifiedMailbox::folder("Sent"))));
    EXPECT_THAT(idsOf(lists->messages(*lists->mailbox({second, "Sent"}), "", InboxFocus::important, 5)), ElementsAre(f))
        << "only an inbox has a focus";
}

TEST_F(MessageListsTest, RowsAreLeftOutByEachChoice) {
    const auto a = add(inbox1, 1);
    const auto b = add(inbox1, 2, {.category = "newsletters"});
    const auto c = add(inbox1, 3, {.category = "security", .isSeen = true});
    const auto d = add(inbox1, 3);
    auto wanted = request(inbox1);
    EXPECT_THAT(walk(wanted), ElementsAre(d, c, b, a));
    status.hide({d});
    wanted.focus = InboxFocus::important;
    EXPECT_THAT(walk(wanted), ElementsAre(c, a));
    wanted.focus = InboxFocus::other;
    EXPECT_THAT(walk(wanted), ElementsAre(b));
    wanted.showsUnreadOnly = true;
    EXPECT_THAT(walk(wanted), ElementsAre(b));
    wanted.focus = InboxFocus::important;
    EXPECT_THAT(walk(wanted), ElementsAre(a));
    status.show({d});
    EXPECT_THAT(walk(wanted), ElementsAre(d, a));
    wanted.limit = 2;
    const auto page = lists->page(wanted);
    wanted.after = page.next;
    EXPECT_TRUE(lists->page(wanted).records.empty());
}

TEST_F(MessageListsTest, ASearchFindsTheSameWithTheIndexAndWithout) {
    // Enough mail that the rare hit lies beyond what a page looks at itself.
    std::vector<MessageRecord> many;
    for (int i = 0; i < 4'000; ++i) many.push_back(record(inbox1, i, {.subject = "Weekly report"}));
    many[10].subject = "Übersicht zebra";
    many[3'990].snippet = "a ZEBRA crosses";
    many[20].fromName = "Zebra Crossing";
    many[30].mailboxPath = "Other";
    many[30].subject = "zebra elsewhere";
    many[40].messageID = "<striped@x>";
    insert(many);
    index.add("<striped@x>", first, "nothing but zebra");
    const std::vector<std::int64_t> expected{many[3'990].id, many[40].id, many[20].id, many[10].id};

    auto wanted = request(inbox1);
    wanted.search = " zeb ";
    EXPECT_EQ(walk(wanted), expected);
    lists->startIndexing();
    ASSERT_TRUE(eventually([&] { return context->texts.unindexed(1).empty(); }));
    EXPECT_EQ(walk(wanted), expected);
    EXPECT_EQ(idsOf(lists->messages(wanted.source, "zebra", InboxFocus::all, 3)),
              std::vector(expected.begin(), expected.begin() + 3));
    wanted.search = "zebra UBERSICHT";
    EXPECT_THAT(walk(wanted), ElementsAre(many[10].id));
    wanted.search = "weekly rep";
    EXPECT_EQ(walk(wanted).size(), 3'998U) << "many hits are met on the way";
    wanted.search = "z c";
    EXPECT_THAT(walk(wanted), ElementsAre(many[3'990].id, many[20].id)) << "no index for short words";
    wanted.search = "(*)";
    EXPECT_THAT(walk(wanted), IsEmpty());
    wanted.search = "  ";
    wanted.limit = 500;
    EXPECT_EQ(walk(wanted).size(), 3'999U);

    const auto late = add(inbox1, 5'000, {.subject = "one more zebra"});
    wanted.search = "zebra";
    status.hide({expected[0]});
    EXPECT_THAT(walk(wanted), ElementsAre(late, expected[1], expected[2], expected[3]));
    ASSERT_TRUE(eventually([&] { return context->texts.unindexed(1).empty(); })) << "new mail is indexed as it comes";
}

TEST_F(MessageListsTest, ConversationsStandWhereTheirNewestRowStands) {
    addMailbox({first, "Sent"}, MailboxRole::sent);
    const auto a = add(inbox1, 10, {.thread = "t"});
    const auto b = add(inbox1, 20, {.thread = "u", .isSeen = true});
    const auto c = add(inbox1, 30, {.thread = "t"});
    const auto sent = add({first, "Sent"}, 40, {.thread = "u"});
    const auto d = add(inbox1, 20, {.thread = "t", .isSeen = true});
    const auto elsewhere = add(inbox2, 25, {.thread = "t"});
    const auto rows = [&](MessagePageRequest wanted) {
        std::vector<std::tuple<std::int64_t, std::int64_t, std::int64_t>> found;
        wanted.limit = 1;
        for (;;) {
            auto [page, next] = lists->conversations(wanted);
            for (const auto& row : page) found.emplace_back(row.newest.id, row.count, row.unread);
            if (!next) return found;
            wanted.after = next;
        }
    };
    auto wanted = request(UnifiedMailbox::mailbox(MailboxRole::inbox));
    EXPECT_THAT(rows(wanted), ElementsAre(std::tuple(c, 3, 2), std::tuple(elsewhere, 1, 1), std::tuple(b, 1, 0)));
    status.hide({c});
    EXPECT_THAT(rows(wanted), ElementsAre(std::tuple(elsewhere, 1, 1), std::tuple(d, 2, 1), std::tuple(b, 1, 0)));
    wanted.showsUnreadOnly = true;
    EXPECT_THAT(rows(wanted), ElementsAre(std::tuple(elsewhere, 1, 1), std::tuple(a, 1, 1)));
    EXPECT_THAT(idsOf(lists->thread(first, "t")), ElementsAre(a, d));
    EXPECT_THAT(idsOf(lists->thread(first, "u")), ElementsAre(b, sent));
}

TEST_F(MessageListsTest, TheNeighbourStandsBelowOrElseAbove) {
    std::vector<std::int64_t> rows;
    for (int i = 5; i >= 1; --i) rows.push_back(add(inbox1, i));
    const auto elsewhere = add(inbox2, 3);
    const auto wanted = request(inbox1);
    EXPECT_EQ(lists->neighbour(wanted, {rows[0]}), rows[1]);
    EXPECT_EQ(lists->neighbour(wanted, {rows[1], rows[2]}), rows[3]);
    EXPECT_EQ(lists->neighbour(wanted, {rows[1], rows[3]}), rows[2]);
    EXPECT_EQ(lists->neighbour(wanted, {rows[3], rows[4]}), rows[2]);
    status.hide({rows[2]});
    EXPECT_EQ(lists->neighbour(wanted, {rows[3], rows[4]}), rows[1]);
    EXPECT_EQ(lists->neighbour(wanted, {elsewhere}), std::nullopt);
    EXPECT_EQ(lists->neighbour(wanted, {rows.begin(), rows.end()}), std::nullopt);
}

TEST_F(MessageListsTest, EmptyViewsHaveTheirWords) {
    const auto words = [&](const UnifiedMailbox& view) {
        const auto found = emptyWords(MessageListSource(lists->resolve(view)));
        return found.title + "/" + found.text;
    };
    EXPECT_EQ(words(UnifiedMailbox::mailbox(MailboxRole::inbox)), "No Messages/Every Inbox is empty.");
    EXPECT_EQ(words(UnifiedMailbox::mailbox(MailboxRole::snoozed)),
              "Nothing Snoozed/Snoozed messages wait here until their time comes.");
    EXPECT_EQ(words(UnifiedMailbox::label("followup")), "Nothing Waiting/");
    EXPECT_EQ(words(UnifiedMailbox::important()), "Nothing Important/");
    EXPECT_EQ(words(UnifiedMailbox::folder("inbox")), "No Messages/");
    EXPECT_EQ(emptyWords(*lists->mailbox(inbox1)).text, "");
    EXPECT_EQ(inboxFocusFrom("other"), InboxFocus::other);
    EXPECT_EQ(inboxFocusFrom(rawText(InboxFocus::important)), InboxFocus::important);
    EXPECT_EQ(inboxFocusFrom(""), std::nullopt);
}

}}
