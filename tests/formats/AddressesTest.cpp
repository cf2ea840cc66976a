#include "formats/Addresses.h"
#include "formats/ShownAddress.h"

#include <chrono>
#include <gtest/gtest.h>

namespace velmo { namespace {

/// One line per address, "name|email" or the email alone.
std::string listed(std::string_view headerValue) {
    std::string lines;
    for (const MailAddress& address : parseAddressList(headerValue)) {
        if (!lines.empty()) lines += '\n';
        if (address.name) lines += *address.name + '|';
        lines += address.email;
    }
    return lines;
}

struct Case {
    std::string_view value;
    std::string_view expected;
};

TEST(Addresses, readsWhatTheStandardAllows) {
    const Case cases[] = {
        {"ana@example.org", "ana@example.org"},
        {"Ana Marques <ana@example.org>, ben@example.net", "Ana Marques|ana@example.org\nben@example.net"},
        {R"("Marques, Ana" <ana@example.org>)", "Marques, Ana|ana@example.org"},
        {R"("Ana \"A\" \\ M" <ana@example.org>)", R"(Ana "A" \ M|ana@example.org)"},
        {R"("ana, m"@example.org, <"b>n"@example.net>)", "\"ana, m\"@example.org\n\"b>n\"@example.net"},
        {"=?utf-8?Q?Zo=C3=AB?= =?utf-8?B?IEtyw7xnZXI=?= <z@example.org>", "Zoë Krüger|z@example.org"},
        {"\"=?utf-8?Q?Zo=C3=AB?=\" <z@example.org>", "Zoë|z@example.org"},
        {"ana@example.org (Ana (the \\) elder) Marques)", "Ana (the ) elder) Marques|ana@example.org"},
        {"(before) Ana (between) <ana(inside)@example.org> (after)", "Ana|ana@example.org"},
        {"Team: Ana <ana@example.org>, ben@example.net;, Cleo <c@example.com>",
         "Ana|ana@example.org\nben@example.net\nCleo|c@example.com"},
        {"undisclosed-recipients:;", ""},
        {"Ana <@relay.test,@hop.test:ana@example.org>, ben@example.net", "Ana|ana@example.org\nben@example.net"},
        {"ana @ example.org, < ben @ example . net >", "ana@example.org\nben@example.net"},
        {"ana@[IPv6:2001:db8::1], ben@[192.0.2.1]", "ana@[IPv6:2001:db8::1]\nben@[192.0.2.1]"},
        {"Łukasz <łukasz@przykład.test>", "Łukasz|łukasz@przykład.test"},
        {", ,, ana@example.org , ", "ana@example.org"},
        {"<>", ""},
        {"", ""},
    };
    for (const Case& one : cases) EXPECT_EQ(listed(one.value), one.expected) << one.value;
}

TEST(Addresses, makesTheBestOfWhatIsBroken) {
    const Case cases[] = {
        {"Ana <ana@example.org; Ben <ben@example.net", "Ana|ana@example.org\nBen|ben@example.net"},
        {"Ana <ana@example.org> Ben <ben@example.net>", "Ana|ana@example.org\nBen|ben@example.net"},
        {"ana@example.org ben@example.net", "ana@example.org\nben@example.net"},
        {"Ana Marques ana@example.org", "Ana Marques|ana@example.org"},
        {"\"Ana <ana@example.org>, ben@example.net", "Ana|ana@example.org\nben@example.net"},
        {"Ana :( <ana@example.org>, Ben (x) <ben@example.net>", "ana@example.org\nBen|ben@example.net"},
        {"=?utf-8?Q?Marques,_Ana?= <ana@example.org>", "Marques, Ana|ana@example.org"},
        {"=?utf-8?Q?Marques, ana@example.org", "ana@example.org"},
        {"<<ana@example.org>>", "ana@example.org"},
        {"\"ana@example.org\"", "ana@example.org"},
        {"ana@example.org <ana@example.org>", "ana@example.org|ana@example.org"},
        {"\"ana@bank.test\" <thief@example.org>", "ana@bank.test|thief@example.org"},
        {"mailto:ana@example.org", "ana@example.org"},
        {"root (Cron Daemon), MAILER-DAEMON", "Cron Daemon|root\nMAILER-DAEMON"},
        {"=?utf-8?B?QW5hCkJjYzogYkBleGFtcGxlLm5ldA==?= <ana@example.org>", "Ana Bcc: b@example.net|ana@example.org"},
        {"<ana marques@example.org>", "ana marques@example.org"},
        {"@ @@ <@> <@a,@b> > ) ] nobody at all", ""},
        {"\" \" <ana@example.org>", "ana@example.org"},
    };
    for (const Case& one : cases) EXPECT_EQ(listed(one.value), one.expected) << one.value;
}

TEST(Addresses, staysLinearUnderFloods) {
    constexpr std::size_t count = 100'000;
    for (const std::string_view unit : {"(", "()", "\"", "<", "<@", "@[", "=?", "=?a?q?", "a@b ", "a,", ":", "<a@b>c",
                                        "\\\"", "(\"<", "((a)", "\\(", "@ a "}) {
        std::string flood;
        for (std::size_t i = 0; i < count; ++i) flood += unit;
        const auto start = std::chrono::steady_clock::now();
        parseAddressList(flood);
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(3)) << unit;
    }
}

TEST(ShownAddress, NoNamePassesForAnAddress) {
    const Case cases[] = {
        {"Ana \u2003  Marques <ana@x.test>", "Ana Marques <ana@x.test>"},
        {"\"ANA@x.test\" <ana@x.test>", "ana@x.test"},
        {"=?utf-8?Q?Bank_=3Csecurity=40bank.test=3E=E2=80=83=E2=80=83=E2=80=83?= <thief@evil.test>",
         "thief@evil.test (Bank <security@bank.test>)"},
        {"\"security\u200B@\u200Bbank.test\" <thief@evil.test>", "thief@evil.test (security@bank.test)"},
        {"\"security\uFF20bank.test\" <thief@evil.test>, b@x.test",
         "thief@evil.test (security\uFF20bank.test), b@x.test"},
        {"=?utf-8?Q?a=40bank.test?=", "a@bank.test"},
        {"undisclosed-recipients:;", "undisclosed-recipients:;"},
    };
    for (const auto& [value, expected] : cases) EXPECT_EQ(shownAddresses(value), expected) << value;
    EXPECT_EQ(shortAddress("Ana", "ana@x.test"), "Ana");
    EXPECT_EQ(shortAddress("", "ana@x.test"), "ana@x.test");
    EXPECT_EQ(shortAddress("ceo@bank.test", "thief@evil.test"), "thief@evil.test (ceo@bank.test)");
}

}}
