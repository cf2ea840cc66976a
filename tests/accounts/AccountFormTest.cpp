#include "accounts/AccountDraft.h"
#include "accounts/AccountError.h"
#include "accounts/AccountSetup.h"
#include "accounts/MailAccount.h"
#include "accounts/ProviderHelp.h"
#include "formats/IMAPAddress.h"

#include <gtest/gtest.h>
#include <set>

namespace velmo { namespace {

using Security = ServerConfig::Security;

TEST(MailProvider, TakesOnlyWholeAddresses) {
    for (const char* valid : {"a@b.c", "ada.l+tag@Example.ORG", "\"x\"@b.c", "a@b..c", "a@b."})
        EXPECT_TRUE(domainOf(valid)) << valid;
    for (const char* invalid : {"", "a", "@b.c", "a@", "a@bc", "a@.bc", "a@b@c.d", "a b@c.d", "a@b.c ", "a@b .c",
                                "a\n@b.c", "a@b.c\r\nX: y", "a@@b.c"})
        EXPECT_FALSE(domainOf(invalid)) << invalid;
    EXPECT_EQ(domainOf("ada@Example.ORG"), "example.org");
}

TEST(MailProvider, DetectsProvidersByTheWholeDomainAndInfersServers) {
    struct Case {
        const char* email;
        std::optional<MailProvider> provider;
        const char* incoming;
        const char* outgoing;
        int port;
        Security security;
    };
    const std::vector<Case> cases{
        {"a@GMAIL.com", MailProvider::google, "imap.gmail.com", "smtp.gmail.com", 465, Security::tls},
        {"a@googlemail.com", MailProvider::google, "imap.gmail.com", "smtp.gmail.com", 465, Security::tls},
        {"a@msn.com", MailProvider::microsoft, "outlook.office365.com", "smtp.office365.com", 587, Security::startTLS},
        {"a@mac.com", MailProvider::icloud, "imap.mail.me.com", "smtp.mail.me.com", 587, Security::startTLS},
        {"a@yahoo.co.uk", MailProvider::yahoo, "imap.mail.yahoo.com", "smtp.mail.yahoo.com", 465, Security::tls},
        {"a@ymail.com", MailProvider::yahoo, "imap.mail.yahoo.com", "smtp.mail.yahoo.com", 465, Security::tls},
        {"a@fastmail.fm", MailProvider::fastmail, "imap.fastmail.com", "smtp.fastmail.com", 465, Security::tls},
        {"a@gmx.net", std::nullopt, "imap.gmx.net", "mail.gmx.net", 587, Security::startTLS},
        {"a@gmx.com", std::nullopt, "imap.gmx.com", "mail.gmx.com", 587, Security::startTLS},
        {"a@notgmail.com", std::nullopt, "imap.notgmail.com", "smtp.notgmail.com", 587, Security::startTLS},
        {"a@mail.yahoo.com", std::nullopt, "imap.mail.yahoo.com", "smtp.mail.yahoo.com", 587, Security::startTLS},
        {"a@Own.Example", std::nullopt, "imap.own.example", "smtp.own.example", 587, Security::startTLS},
    };
    for (const auto& [email, provider, incoming, outgoing, port, security] : cases) {
        EXPECT_EQ(detectedProvider(email), provider) << email;
        EXPECT_EQ(inferredServers(email),
                  ServerPair(ServerConfig(incoming, 993, Security::tls), ServerConfig(outgoing, port, security)))
            << email;
    }
    EXPECT_EQ(detectedProvider("a@@gmail.com"), std::nullopt);
    EXPECT_EQ(inferredServers("gmail.com"), std::nullopt);
}

TEST(MailProvider, EveryProviderHasItsOwnRowInEveryTable) {
    std::set<std::string> names;
    std::set<std::string> lines;
    for (const auto provider : allMailProviders) {
        EXPECT_EQ(mailProviderFrom(rawText(provider)), provider);
        names.insert(name(provider));
        const auto help = providerHelp(provider);
        lines.insert(help.pickerLine);
        EXPECT_EQ(help.paragraph.ends_with("Velmo-Mail keeps the password in your Mac's keychain."),
                  provider != MailProvider::microsoft);
        EXPECT_EQ(help.linkLabel.has_value(), provider != MailProvider::other);
        EXPECT_EQ(helpURL(provider).value_or("https://").substr(0, 8), "https://");
        EXPECT_EQ(helpURL(provider).has_value(), provider != MailProvider::other);
        EXPECT_EQ(defaultServers(provider).has_value(), provider != MailProvider::other);
    }
    EXPECT_EQ(names.size(), allMailProviders.size());
    EXPECT_EQ(lines.size(), allMailProviders.size());
}

TEST(AccountDraft, CleansWhatPastingAndTypingLeaveBehind) {
    struct Case {
        MailProvider provider;
        const char* password;
        const char* secret;
    };
    const std::vector<Case> cases{
        {MailProvider::google, "abcd efgh\u00a0ijkl\tmnop\n", "abcdefghijklmnop"},
        {MailProvider::other, " two  words \r\n", "two  words"},
        {MailProvider::icloud, "a\u2028b\u0085c\vd\u2029", "abcd"},
        {MailProvider::yahoo, "\n x y", "x y"},
    };
    for (const auto& [provider, password, secret] : cases) {
        AccountDraft draft(provider);
        draft.password = password;
        EXPECT_EQ(normalised(draft).secret, secret) << password;
    }
    AccountDraft draft;
    draft.email = "\n ada@example.org\u00a0";
    draft.username = " \t";
    EXPECT_EQ(normalised(draft).username, "ada@example.org");
    draft.username = " ada ";
    EXPECT_EQ(normalised(draft).email, "ada@example.org");
    EXPECT_EQ(normalised(draft).username, "ada");
}

TEST(AccountSetup, FillsInServersUntilThePersonEditsThem) {
    AccountSetup setup;
    EXPECT_TRUE(setup.showsPicker());
    setup.choose(MailProvider::other);
    EXPECT_FALSE(setup.showsPicker());
    EXPECT_EQ(setup.serverNote(), "Filled in from your address once you've typed it.");
    setup.typeEmail(" ada@example.org\n"); // pasted
    EXPECT_EQ(setup.draft->incoming.host, "imap.example.org");
    EXPECT_EQ(setup.serverNote(), "Found from your address; change them if your provider gives different ones.");
    setup.typeEmail("ada@example.org, no address any more");
    EXPECT_EQ(setup.draft->incoming.host, "imap.example.org");

    const ServerConfig own("mail.own.example", 143, Security::startTLS);
    setup.showsServerSettings = true;
    setup.editIncoming(own);
    setup.typeEmail("ada@gmail.com");
    EXPECT_EQ(setup.draft->incoming, own);
    EXPECT_EQ(setup.draft->outgoing.host, "smtp.example.org");

    setup.typePassword("secret");
    setup.choose(MailProvider::yahoo);
    EXPECT_EQ(*setup.draft, AccountDraft(MailProvider::yahoo)) << "a fresh draft keeps no password";
    EXPECT_FALSE(*setup.serversEditedByHand);
    EXPECT_FALSE(*setup.showsServerSettings);
    EXPECT_EQ(setup.serverNote(), "Filled in for Yahoo; nothing to do here unless its help page says so.");
    setup.typeEmail("ada@example.org");
    EXPECT_EQ(setup.draft->incoming.host, "imap.mail.yahoo.com");
}

constexpr std::string_view storedList =
    R"([{"id":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F","email":"ada@example.org","provider":"other","username":"ada",)"
    R"("incoming":{"host":"imap.example.org","port":993,"security":"tls"},)"
    R"("outgoing":{"host":"smtp.example.org","port":587,"security":"startTLS"}}])";

TEST(MailAccount, IsStoredInTheFormThatOtherVersionsRead) {
    const auto list = accountsFromJSON(storedList);
    ASSERT_TRUE(list);
    ASSERT_EQ(list->size(), 1U);
    EXPECT_EQ(list->front().incoming, ServerConfig("imap.example.org", 993, Security::tls));
    EXPECT_EQ(accountsJSON(*list), storedList);
    EXPECT_EQ(accountsFromJSON("[]"), std::vector<MailAccount>{});

    auto odd = *list;
    odd.front().username = "bad \xFF \"name\"";
    EXPECT_TRUE(accountsFromJSON(accountsJSON(odd)));
    const auto with = [](std::string_view old, std::string_view changed) {
        std::string text(storedList);
        return text.replace(text.find(old), old.size(), changed);
    };
    for (const auto& broken :
         {std::string(), std::string("{}"), std::string("[1]"), with("\"other\"", "\"unknown\""), with("E621", "X621"),
          with("993", "\"993\""), with("993", "-1"), with("993", "18446744073709551615"), with("993", "99.5"),
          with("\"tls\"", "\"none\""), with("\"ada\"", "null"), with("}]", "}")})
        EXPECT_EQ(accountsFromJSON(broken), std::nullopt) << broken;
}

TEST(AccountError, SpeaksInTheWordsOfItsKindAndComparesByPayload) {
    const std::vector<std::pair<AccountError, const char*>> cases{
        {AccountError::duplicate("A@b.c"), "A@b.c is already added."},
        {AccountError::cannotConnect("h"), "Couldn't connect to h. Check the server and your connection."},
        {AccountError::authenticationFailed("IMAP"), "The IMAP server didn't accept that email and password."},
        {AccountError::unexpectedResponse("SMTP"), "The SMTP server responded in a way Velmo-Mail doesn't understand."},
        {AccountError::signInNotConfigured(MailProvider::microsoft),
         "Outlook sign-in isn't available in this build yet."},
        {AccountError::signInFailed(MailProvider::microsoft), "Outlook sign-in didn't complete. Please try again."},
        {AccountError::invalidEmail(), "Enter a full email address, like name@example.com."},
        {AccountError::googleAppPasswordRejected(), "Google didn't accept that. Use an app password, not your Google "
                                                    "password, and check 2-Step Verification is on."},
    };
    for (const auto& [error, sentence] : cases) EXPECT_EQ(error.sentence(), sentence);
    EXPECT_EQ(AccountError::duplicate("a"), AccountError::duplicate("a"));
    EXPECT_NE(AccountError::duplicate("a"), AccountError::duplicate("b"));
    EXPECT_NE(AccountError::signInFailed(MailProvider::google), AccountError::signInFailed(MailProvider::aol));
}

}}
