#include "accounts/AccountStore.h"
#include "base/ManualClock.h"
#include "base/Runtime.h"
#include "base/Task.h"
#include "platform/FileError.h"
#include "support/ScriptedServer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace velmo { namespace {

using Activity = AccountStore::Activity;
using Security = ServerConfig::Security;
using test::ScriptedServer;
using testing::ElementsAre;
using testing::IsEmpty;

/// Settings on a full disk.
class FullSettings final : public Settings {
  public:
    std::optional<SettingsValue> value(std::string_view) const override { return std::nullopt; }
    void set(std::string_view, SettingsValue) override {
        throw FileError("settings.json", std::make_error_code(std::errc::no_space_on_device));
    }
    void remove(std::string_view) override {}
    void update(std::string_view key, const Edit& edit) override { set(key, edit(std::nullopt)); }
    std::vector<std::string> keys() const override { return {}; }
};

MailAccount account(const std::string& email, MailProvider provider = MailProvider::other) {
    MailAccount result;
    result.id = UUID::random();
    result.email = email;
    result.provider = provider;
    result.username = email;
    result.incoming = ServerConfig("imap.example.org", 993, Security::tls);
    result.outgoing = ServerConfig("smtp.example.org", 587, Security::startTLS);
    return result;
}

class AccountStoreTest : public testing::Test {
  protected:
    AccountStoreTest() { store = fresh(); }

    std::unique_ptr<AccountStore> fresh() {
        return std::make_unique<AccountStore>(runtime.executors(), clock, settings, keychain);
    }
    void add(const MailAccount& account, const std::string& secret = "secret") {
        runtime.run([&] { return store->add(account, secret); });
    }
    void remove(UUID id) {
        runtime.run([&] { return store->remove(id); });
    }
    bool addDraft(const AccountDraft& draft) {
        return runtime.run([&] { return store->addAccount(draft); });
    }
    MailCredential credential(const MailAccount& account) {
        return runtime.run([&] { return store->credential(account); });
    }
    std::vector<std::string> emails(const AccountStore& of) const {
        std::vector<std::string> result;
        for (const auto& each : *of.accounts) result.push_back(each.email);
        return result;
    }

    Runtime runtime;
    ManualClock clock;
    MemorySettings settings;
    MemoryKeychain keychain;
    std::unique_ptr<AccountStore> store;
};

TEST_F(AccountStoreTest, TheListItsOrderAndSecretsOutliveTheStore) {
    const auto a = account("a@x.org");
    const auto b = account("b@x.org");
    const auto c = account("c@x.org");
    for (const auto& each : {a, b, c}) add(each, each.email + " secret");
    EXPECT_EQ(keychain.contents().at({"mail.velmo.app", "mail-account." + b.id.text()}), "b@x.org secret");

    for (const std::ptrdiff_t nowhere : {0, -1, 3}) store->move(a.id, nowhere);
    store->move(UUID::random(), 0);
    EXPECT_THAT(emails(*store), ElementsAre("a@x.org", "b@x.org", "c@x.org"));
    store->move(a.id, 2);
    store->move(c.id, 0);
    EXPECT_THAT(emails(*fresh()), ElementsAre("c@x.org", "b@x.org", "a@x.org"));
    store = fresh();
    EXPECT_EQ(credential(b), MailCredential::password("b@x.org", "b@x.org secret"));
}

TEST_F(AccountStoreTest, ADamagedListIsReplacedByTheFirstChangeOnly) {
    settings.setData("mailAccounts", "[{]");
    store = fresh();
    EXPECT_THAT(*store->accounts, IsEmpty());
    EXPECT_EQ(*store->errorMessage, std::nullopt);
    EXPECT_EQ(settings.data("mailAccounts"), "[{]");
    add(account("a@x.org"));
    EXPECT_THAT(emails(*fresh()), ElementsAre("a@x.org"));
}

TEST_F(AccountStoreTest, TwoProcessesLoseNoAccountOfEachOther) {
    const auto other = fresh();
    const auto a = account("a@x.org"), b = account("b@x.org"), c = account("c@x.org");
    add(a);
    runtime.run([&] { return other->add(b, "secret"); });
    add(c);
    EXPECT_THAT(emails(*store), ElementsAre("a@x.org", "b@x.org", "c@x.org"));
    remove(a.id);
    other->refresh();
    other->move(b.id, 1);
    EXPECT_THAT(emails(*fresh()), ElementsAre("c@x.org", "b@x.org"));
    store->refresh();
    EXPECT_THAT(emails(*store), ElementsAre("c@x.org", "b@x.org"));
}

TEST_F(AccountStoreTest, RemovingTellsOthersFirstAndLeavesNothing) {
    const auto a = account("a@x.org");
    const auto b = account("b@x.org");
    add(a);
    add(b);
    settings.setText("signature." + a.id.text(), "Ada");
    settings.setData("signature.rich." + a.id.text(), "[]");
    int calls = 0;
    store->onRemove = [&](MailAccount removed) -> Async<void> {
        ++calls;
        EXPECT_EQ(removed, a);
        EXPECT_EQ(store->accounts->size(), 2U);
        EXPECT_EQ(keychain.contents().size(), 2U);
        // A second request meanwhile must not do it all again.
        co_await store->remove(removed.id);
        throw UserError("the store was closed");
    };
    remove(a.id);
    remove(UUID::random());
    EXPECT_EQ(calls, 1);
    EXPECT_THAT(emails(*fresh()), ElementsAre("b@x.org"));
    EXPECT_THAT(settings.keys(), ElementsAre("mailAccounts"));
    EXPECT_EQ(keychain.contents().size(), 1U);
    EXPECT_THROW(credential(a), AccountError);
}

TEST_F(AccountStoreTest, NothingIsHalfAddedWhenSecretOrListCannotBeKept) {
    keychain.makeUnavailable(KeychainUnavailable("The keyring is locked."));
    EXPECT_THROW(add(account("a@x.org")), KeychainUnavailable);
    EXPECT_THAT(*store->accounts, IsEmpty());
    EXPECT_THAT(settings.keys(), IsEmpty());

    keychain.makeUnavailable(std::nullopt);
    FullSettings full;
    store = std::make_unique<AccountStore>(runtime.executors(), clock, full, keychain);
    EXPECT_THROW(add(account("a@x.org")), FileError);
    EXPECT_THAT(*store->accounts, IsEmpty());
    EXPECT_THAT(keychain.contents(), IsEmpty());
}

TEST_F(AccountStoreTest, TellsAMissingSecretFromALockedKeyring) {
    const auto a = account("a@x.org");
    add(a);
    keychain.makeUnavailable(KeychainUnavailable("The keyring is locked."));
    EXPECT_THROW(credential(a), KeychainUnavailable);
    keychain.makeUnavailable(std::nullopt);
    ASSERT_TRUE(keychain.remove("mail.velmo.app", "mail-account." + a.id.text()));
    try {
        credential(a);
        FAIL();
    } catch (const AccountError& error) {
        EXPECT_EQ(error, AccountError::authenticationFailed("imap.example.org"));
    }
    AccountStore preview(runtime.executors(), clock);
    EXPECT_THROW(runtime.run([&] { return preview.credential(a); }), AccountError);
}

TEST_F(AccountStoreTest, AccessTokensAreCachedUntilTheyExpire) {
    const auto a = account("a@outlook.com", MailProvider::microsoft);
    add(a, "refresh");
    try {
        credential(a);
        FAIL();
    } catch (const AccountError& error) {
        EXPECT_EQ(error, AccountError::signInNotConfigured(MailProvider::microsoft));
    }
    int refreshes = 0;
    store->refreshAccessToken = [&](MailProvider provider, std::string refreshToken) -> Async<AccessToken> {
        EXPECT_EQ(provider, MailProvider::microsoft);
        EXPECT_EQ(refreshToken, "refresh");
        co_return AccessToken{"token " + std::to_string(++refreshes), clock.now() + std::chrono::minutes(59)};
    };
    EXPECT_EQ(credential(a), MailCredential::oauth("a@outlook.com", "token 1"));
    clock.advance(std::chrono::minutes(58));
    EXPECT_EQ(credential(a), MailCredential::oauth("a@outlook.com", "token 1"));
    clock.advance(std::chrono::minutes(1));
    EXPECT_EQ(credential(a), MailCredential::oauth("a@outlook.com", "token 2"));
    EXPECT_EQ(keychain.contents().begin()->second, "refresh");
}

// --- Adding by a form ---------------------------------------------------------------------------------------------

constexpr const char* goodIMAP = "S: * OK\nC: a1 LOGIN \"Ada@Gmail.com\" \"abcdefgh\"\nS: a1 OK\nC: a2 LOGOUT";
constexpr const char* goodSMTP =
    "S: 220 x\nC: EHLO localhost\nS: 250 STARTTLS\nC: STARTTLS\nS: 220 go\nTLS\nC: EHLO localhost\nS: 250 AUTH PLAIN\n"
    "C~ AUTH PLAIN *\nS: 235 in\nC: QUIT";

AccountDraft googleDraft(const ScriptedServer& imap, const ScriptedServer& smtp) {
    AccountDraft draft(MailProvider::google);
    draft.email = " Ada@Gmail.com\n";
    draft.password = "abcd efgh\n";
    draft.incoming = ServerConfig("localhost", imap.port(), Security::tls);
    draft.outgoing = ServerConfig("localhost", smtp.port(), Security::startTLS);
    return draft;
}

TEST_F(AccountStoreTest, AddsADraftThatBothServersAccept) {
    ScriptedServer imap(goodIMAP, ScriptedServer::Security::tls);
    ScriptedServer smtp(goodSMTP);
    std::vector<std::string> activities;
    store->activity.onChange(
        [&] { activities.push_back(store->activity.get() ? store->activity.get()->label() : "idle"); });
    store->fail(AccountError::invalidEmail());
    EXPECT_TRUE(addDraft(googleDraft(imap, smtp)));
    EXPECT_THAT(activities, ElementsAre("Checking the incoming server…", "Checking the outgoing server…", "idle"));
    EXPECT_EQ(*store->errorMessage, std::nullopt);
    EXPECT_EQ(imap.verdict() + smtp.verdict(), "");
    ASSERT_THAT(emails(*fresh()), ElementsAre("Ada@Gmail.com"));
    EXPECT_EQ(credential(store->accounts->front()), MailCredential::password("Ada@Gmail.com", "abcdefgh"));
}

TEST_F(AccountStoreTest, AFailedDraftLeavesWordsAndNothingElse) {
    struct Case {
        const char* name;
        const char* imap;
        const char* smtp;
        AccountError expected;
    };
    const std::vector<Case> cases{
        {"refused by IMAP", "S: * OK\nC~ a1 *\nS: a1 NO", "", AccountError::googleAppPasswordRejected()},
        {"refused by SMTP", goodIMAP, "S: 220 x\nC: EHLO localhost\nS: 250\nC: STARTTLS\nS: 500 no",
         AccountError::unexpectedResponse("SMTP")},
        {"no server", "CLOSE", "", AccountError::cannotConnect("localhost")},
    };
    int failures = 0;
    for (const auto& [name, imapScript, smtpScript, expected] : cases) {
        SCOPED_TRACE(name);
        ScriptedServer imap(imapScript, ScriptedServer::Security::tls);
        ScriptedServer smtp(smtpScript);
        EXPECT_FALSE(addDraft(googleDraft(imap, smtp)));
        EXPECT_EQ(*store->errorMessage, expected.sentence());
        EXPECT_EQ(*store->failureCount, ++failures);
        EXPECT_EQ(*store->activity, std::nullopt);
        EXPECT_THAT(*store->accounts, IsEmpty());
        EXPECT_THAT(settings.keys(), IsEmpty());
        EXPECT_THAT(keychain.contents(), IsEmpty());
    }
}

TEST_F(AccountStoreTest, RefusesBadAndKnownAddressesAndASecondAddWithoutAskingAnyServer) {
    add(account("jörg@example.org"));
    AccountDraft draft;
    draft.email = " JÖRG@Example.org ";
    EXPECT_FALSE(addDraft(draft));
    EXPECT_EQ(*store->errorMessage, "JÖRG@Example.org is already added.");
    draft.email = "ada@example";
    EXPECT_FALSE(addDraft(draft));
    EXPECT_EQ(*store->errorMessage, AccountError::invalidEmail().sentence());

    store->activity = Activity::signingIn(MailProvider::microsoft);
    EXPECT_FALSE(addDraft(draft));
    EXPECT_EQ(*store->activity, Activity::signingIn(MailProvider::microsoft));
    EXPECT_EQ(*store->errorMessage, AccountError::invalidEmail().sentence());
    EXPECT_EQ(*store->failureCount, 2);
}

TEST_F(AccountStoreTest, ACancelledAttemptEndsQuietly) {
    ScriptedServer imap("S: * OK\nC~ a1 *\nPAUSE", ScriptedServer::Security::tls);
    ScriptedServer smtp("");
    const auto draft = googleDraft(imap, smtp);
    runtime.run([&]() -> Async<void> {
        bool added = true;
        Task task(runtime.executors().main, [&]() -> Async<void> { added = co_await store->addAccount(draft); });
        store->activity.onChange([&] { task.cancel(); });
        co_await task.finished();
        EXPECT_FALSE(added);
    });
    EXPECT_EQ(*store->activity, std::nullopt);
    EXPECT_EQ(*store->errorMessage, std::nullopt);
    EXPECT_EQ(*store->failureCount, 0);
    EXPECT_THAT(*store->accounts, IsEmpty());
    EXPECT_THAT(keychain.contents(), IsEmpty());
    EXPECT_EQ(smtp.connections(), 0);
}

}}
