#include "store/Selection.h"

#include "store/ListsFixture.h"

namespace velmo { namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

class SelectionTest : public test::ListsFixture {
  protected:
    /// How often anything that can be observed has changed.
    int changes_ = 0;
    void watch() {
        const auto count = [this] { ++changes_; };
        selection.accountID.onChange(count);
        selection.unified.onChange(count);
        selection.mailboxes.onChange(count);
        selection.labels.onChange(count);
        selection.messages.onChange(count);
        selection.history.onChange(count);
        selection.historyIndex.onChange(count);
        selection.isReaderOpen.onChange(count);
    }

    Selection selection{environment, *lists};
};

TEST_F(SelectionTest, ChoosingAListEndsTheOneBefore) {
    std::vector<MailboxKey> synced;
    selection.syncMailbox = [&](const MailboxKey& key) { synced.push_back(key); };
    addMailbox({first, "Lists"}, MailboxRole::other);
    addLabel("work", "Work");
    const auto inbox = UnifiedMailbox::mailbox(MailboxRole::inbox);
    const auto id = add(inbox1, 1);

    selection.selectUnified(inbox);
    selection.openMessage(id);
    selection.selectMailbox("Lists", first, Selection::Sync::yes);
    EXPECT_EQ(*selection.unified, std::nullopt);
    EXPECT_EQ(*selection.accountID, first);
    EXPECT_THAT(*selection.messages, IsEmpty());
    EXPECT_FALSE(*selection.isReaderOpen);
    EXPECT_THAT(synced, ElementsAre(MailboxKey{first, "Lists"}));
    EXPECT_EQ(std::get<MailboxRecord>(selection.currentList()->source).path, "Lists");

    watch();
    selection.selectMailbox("Lists", first);
    EXPECT_EQ(changes_, 0) << "the mailbox is in view already";
    EXPECT_EQ(synced.size(), 1U);

    selection.selectLabel("work", first);
    EXPECT_THAT(*selection.mailboxes, IsEmpty());
    EXPECT_EQ(std::get<LabelSource>(selection.currentList()->source).label.name, "Work");
    selection.selectMailbox("INBOX", second);
    EXPECT_THAT(*selection.labels, ElementsAre(Pair(first, "work"))) << "kept while another account is in view";
    selection.searchText = "zebra";
    selection.showsUnreadOnly = true;
    selection.selectUnified(inbox);
    EXPECT_EQ(*selection.accountID, std::nullopt);
    const auto list = selection.currentList();
    EXPECT_EQ(std::get<UnifiedScope>(list->source).mailboxes.size(), 2U);
    EXPECT_EQ(list->search, "zebra");
    EXPECT_TRUE(list->showsUnreadOnly);
    changes_ = 0;
    selection.selectUnified(inbox);
    EXPECT_EQ(changes_, 0);
    selection.selectMailbox("gone", first);
    EXPECT_FALSE(selection.currentList());
}

TEST_F(SelectionTest, TheWayBackSkipsWhatIsGone) {
    EXPECT_FALSE(selection.canGoBack() || selection.canGoForward());
    selection.goBack();
    selection.goForward();
    EXPECT_EQ(*selection.historyIndex, -1);

    std::vector<std::int64_t> ids;
    for (int i = 1; i <= 5; ++i) ids.push_back(add(inbox1, i));
    for (int i = 0; i < 4; ++i) selection.openMessage(ids[static_cast<std::size_t>(i)]);
    selection.openMessage(ids[3]);
    EXPECT_EQ(selection.history->size(), 4U) << "the same message again is no step";
    context->messages.remove(inbox1, std::vector{ids[2]});
    selection.goBack();
    EXPECT_THAT(*selection.messages, ElementsAre(ids[1]));
    EXPECT_EQ(selection.history->size(), 4U);
    EXPECT_FALSE(*selection.isMovingInHistory);
    selection.goForward();
    EXPECT_THAT(*selection.messages, ElementsAre(ids[3]));
    EXPECT_FALSE(selection.canGoForward());
    selection.goBack();
    selection.goBack();
    EXPECT_FALSE(selection.canGoBack());
    selection.openMessage(ids[4]);
    EXPECT_THAT(*selection.history, ElementsAre(ids[0], ids[4])) << "the way forward is dropped";
    EXPECT_EQ(*selection.historyIndex, 1);

    for (int i = 0; i < 1'200; ++i) selection.openMessage(ids[i % 2 == 0 ? 0 : 4]);
    EXPECT_EQ(selection.history->size(), 500U);
    EXPECT_EQ(*selection.historyIndex, 499);
}

TEST_F(SelectionTest, TheSelectionMovesOnWhenMessagesLeave) {
    const auto a = add(inbox1, 3), b = add(inbox1, 2), c = add(inbox1, 1);
    selection.selectMailbox("INBOX", first);
    selection.selectMessages({a, b});
    selection.selectNext({c});
    EXPECT_THAT(*selection.messages, ElementsAre(a, b));
    selection.selectNext({a});
    EXPECT_THAT(*selection.messages, ElementsAre(b));
    selection.openMessage(b);
    selection.selectNext({b});
    EXPECT_THAT(*selection.messages, ElementsAre(c));
    EXPECT_TRUE(*selection.isReaderOpen);
    EXPECT_THAT(*selection.history, ElementsAre(b, c));
    selection.selectNext({a, b, c});
    EXPECT_THAT(*selection.messages, IsEmpty());
    EXPECT_FALSE(*selection.isReaderOpen);

    // A message that was read is no row of the unread ones any longer.
    selection.showsUnreadOnly = true;
    selection.openMessage(b);
    MessageChange seen;
    seen.isSeen = true;
    context->messages.change(b, seen);
    selection.selectNext({b});
    EXPECT_THAT(*selection.messages, ElementsAre(c));
    EXPECT_TRUE(*selection.isReaderOpen);
}

TEST_F(SelectionTest, AccountsThatGoTakeTheirSelectionWithThem) {
    const auto inbox = UnifiedMailbox::mailbox(MailboxRole::inbox);
    selection.repair({first, second});
    EXPECT_EQ(*selection.unified, inbox) << "a start opens the default view";
    const auto mine = add(inbox1, 2), theirs = add(inbox2, 1);
    selection.selectMessages({mine, theirs});
    selection.repair({first});
    EXPECT_THAT(*selection.messages, ElementsAre(mine));

    selection.selectMailbox("INBOX", first);
    selection.selectMailbox("INBOX", second);
    selection.repair({first, second});
    EXPECT_EQ(*selection.accountID, second) << "nothing to repair";
    selection.repair({first});
    EXPECT_EQ(*selection.unified, inbox);
    EXPECT_EQ(*selection.accountID, std::nullopt);
    EXPECT_THAT(*selection.mailboxes, ElementsAre(Pair(first, "INBOX")));
    selection.repair({});
    EXPECT_EQ(*selection.unified, std::nullopt);
    EXPECT_FALSE(selection.currentList());
    selection.repair({first});
    EXPECT_EQ(*selection.unified, inbox);
}

}}
