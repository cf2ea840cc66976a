#include "records/Category.h"

#include "base/Text.h"
#include "platform/Settings.h"
#include "records/Labels.h"
#include "records/MessageRecord.h"

#include <gtest/gtest.h>

namespace velmo { namespace {

TEST(CategoryTest, TheFirstRuleThatHitsDecides) {
    constexpr auto unknown = std::optional<bool>();
    struct {
        const char* from;
        std::string subject;
        std::string snippet;
        std::optional<bool> isBulk;
        std::optional<Category> expected;
    } const cases[] = {
        {"noreply@facebookmail.com", "Your VERIFICATION code", "", true, Category::security},
        {"a@b.example", "hello", "Someone new signed in: new sign-in from a phone", false, Category::security},
        {"a@b.example", "insecurity alert", "", false, std::nullopt},
        {"billing@anything.example", "whatever it says", "", unknown, Category::receipts},
        {"a@b.example", "Order #123", "", false, Category::receipts},
        {"ghost@substack.com", "Your receipt", "", true, Category::receipts},
        {"Someone@Mail.LinkedIn.com", "You appeared in searches", "", true, Category::social},
        {"me@notfacebook.com", "hi", "", false, std::nullopt},
        {"writer@mine.beehiiv.com", "On things", "", false, Category::newsletters},
        {"a@b.example", "Roundup: issue #12", "", false, Category::newsletters},
        // A newsletter word counts in the subject alone.
        {"a@b.example", "hi", "the newsletter is out", false, std::nullopt},
        {"shop@b.example", "20% off everything", "", true, Category::promotions},
        {"shop@b.example", "20% off everything", "", unknown, Category::promotions},
        {"shop@b.example", "20% off everything", "", false, std::nullopt},
        {"hello@b.example", "Good day", "", true, Category::promotions},
        {"ceo@b.example", "Good day", "", true, Category::updates},
        {"alerts-team@b.example", "Good day", "", false, Category::updates},
        {"team-alerts@b.example", "Good day", "", unknown, Category::updates},
        {"no-reply+1234@b.example", "Good day", "", false, Category::updates},
        {"teamalerts@b.example", "Good day", "", false, std::nullopt},
        {"news+weekly@b.example", "Good day", "", false, std::nullopt},
        {"friend@b.example", "Dinner", "See you on Friday", false, std::nullopt},
        {"", "", "", false, std::nullopt},
        {"no at sign", "", "", unknown, std::nullopt},
        // Characters, not bytes, are counted; the subject is searched whole.
        {"a@b.example", "hi", std::string(293, 'x') + " refund", false, Category::receipts},
        {"a@b.example", "hi", std::string(294, 'x') + " refund", false, std::nullopt},
        {"a@b.example", std::string(400, 'x') + " refund", "", false, Category::receipts},
    };
    for (const auto& [from, subject, snippet, isBulk, expected] : cases)
        EXPECT_EQ(categorise(from, subject, snippet, isBulk), expected) << from << " " << subject;
}

TEST(CategoryTest, EveryPhraseIsFound) {
    constexpr std::string_view security =
        "verification code|login code|signin code|sign in code|sign-in code|security code|one-time code|"
        "one time code|confirmation code|security alert|new sign-in|new signin|new login|reset your password|"
        "change your password|password reset|two-factor|two factor|2FA|verify your email|verify your account|"
        "verify your identity|confirm login|confirm your login|confirm your business account login|"
        "suspicious|app password|secure link";
    constexpr std::string_view receipts =
        "receipt|invoice|order confirmation|order confirmed|order #|your order|payment received|"
        "payment confirmation|payment successful|payment failed|amount paid|you paid|purchase|"
        "subscription renewed|subscription renewal|subscription confirmation|refund|billing statement|"
        "statement is ready|statement is available";
    constexpr std::string_view newsletters = "newsletter|weekly digest|digest|issue #12|issue 12|this week in|roundup";
    constexpr std::string_view promotions =
        "20% off|20 % off|sale|deal|deals|offer|discount|save up to|save 5|free trial|limited time|"
        "limited-time|exclusive|introducing|launch|launched|launching|webinar|invitation|you're invited|"
        "youre invited|new arrivals|last chance|black friday|cyber monday|coupon|promo|early access|"
        "don't miss|dont miss|special|upgrade now|upgrade today";
    const auto expectAll = [](std::string_view phrases, Category expected) {
        for (const auto phrase : text::split(phrases, '|')) {
            EXPECT_EQ(categorise("a@b.example", "Re: (" + std::string(phrase) + ")", "", true), expected) << phrase;
            EXPECT_EQ(categorise("a@b.example", text::raised(phrase), "", true), expected) << phrase;
        }
    };
    expectAll(security, Category::security);
    expectAll(receipts, Category::receipts);
    expectAll(newsletters, Category::newsletters);
    expectAll(promotions, Category::promotions);
    // The long s is an s, and the Kelvin sign a k, in another case.
    EXPECT_EQ(categorise("a@b.example", "\u017Fale", "", true), Category::promotions);
    EXPECT_EQ(categorise("a@b.example", "\u00E9sale", "", true), Category::updates);
}

TEST(CategoryTest, CharactersOfTheSnippetAreCounted) {
    std::string umlauts;
    for (int i = 0; i < 293; ++i) umlauts += "ü";
    EXPECT_EQ(categorise("a@b.example", "hi", umlauts + " refund", false), Category::receipts);
    EXPECT_EQ(categorise("a@b.example", "hi", umlauts + "ü refund", false), std::nullopt);
}

TEST(CategoryTest, RawTextsReadBack) {
    for (const auto category : allCategories) EXPECT_EQ(categoryFrom(rawText(category)), category);
    EXPECT_EQ(categoryFrom(""), std::nullopt);
    EXPECT_EQ(categoryFrom("Receipts"), std::nullopt);
    EXPECT_EQ(labelKey(Category::newsletters), "cat:newsletters");
}

TEST(LabelsTest, NoKeyStandsTwice) {
    struct {
        const char* before;
        LabelChange change;
        const char* after;
    } const cases[] = {
        {"", LabelChange::add, "k"},
        {"", LabelChange::remove, ""},
        {"a|b", LabelChange::add, "a|b|k"},
        {"a|b", LabelChange::remove, "a|b"},
        {"k|a", LabelChange::add, "a|k"},
        {"k|a|k", LabelChange::remove, "a"},
        {"|a||kk|", LabelChange::add, "a|kk|k"},
    };
    for (const auto& [before, change, after] : cases) EXPECT_EQ(settingLabel(before, "k", change), after) << before;
    EXPECT_TRUE(hasLabel("a|k", "k"));
    EXPECT_FALSE(hasLabel("a|kk", "k"));
}

TEST(LabelsTest, NewMailIsLabelledUnlessTurnedOff) {
    MemorySettings settings;
    EXPECT_TRUE(labelsNewMailAutomatically(settings));
    settings.setText(labelsNewMailKey, "no");
    EXPECT_TRUE(labelsNewMailAutomatically(settings));
    settings.setBoolean(labelsNewMailKey, false);
    EXPECT_FALSE(labelsNewMailAutomatically(settings));
}

TEST(MessageFlagsTest, KeywordsKeepTheirCase) {
    const auto flags = MessageFlags::from({"\\SEEN", "\\answered", "\\Recent", "$Forwarded", "\\Deleted", "NonJunk"});
    EXPECT_TRUE(flags.isSeen && flags.isAnswered);
    EXPECT_FALSE(flags.isFlagged || flags.isDraft);
    EXPECT_EQ(flags.otherFlags, (std::vector<std::string>{"$Forwarded", "NonJunk", "\\Deleted"}));
}

TEST(MailboxRecordTest, AListingIsTakenOver) {
    MailboxRecord record;
    record.uidNext = 9;
    record.applyListing({"Work.Parent", ".", {"\\HasChildren", "\\NoSelect"}, MailboxRole::archive}, 7, 3);
    EXPECT_EQ(record.name, "Parent");
    EXPECT_FALSE(record.isSelectable);
    EXPECT_EQ(record.role(), MailboxRole::archive);
    EXPECT_EQ(record.totalCount, 7);
    EXPECT_EQ(record.unreadCount, 3);
    EXPECT_EQ(record.uidNext, 9);
    record.roleRaw = "unheard of";
    EXPECT_EQ(record.role(), MailboxRole::other);
}

}}
