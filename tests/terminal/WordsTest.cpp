// What a person writes on a command line, and how what is foreign is shown to them.

#include "base/Date.h"
#include "support/EnvironmentGuard.h"
#include "support/TemporaryDirectory.h"
#include "terminal/HTMLLinks.h"
#include "terminal/InputText.h"
#include "terminal/MessageNumbers.h"
#include "terminal/TimeWords.h"

#include <chrono>
#include <ctime>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sys/stat.h>

namespace velmo { namespace {

using testing::HasSubstr;

TEST(MessageNumbers, AreWholePositiveAndSmallEnough) {
    for (const char* word : {"1", "42", "9223372036854775807"}) EXPECT_EQ(messageNumberTrouble(word), "") << word;
    for (const char* word :
         {"", "0", "-1", "+1", " 1", "1 ", "010", "0x10", "1e3", "x", "9223372036854775808", "99999999999999999999999"})
        EXPECT_THAT(messageNumberTrouble(word), HasSubstr("no number of a message")) << word;
}

TEST(TimeWords, NameMomentsThatThereAre) {
    const test::EnvironmentGuard zone("TZ", "Europe/Berlin");
    tzset();
    const std::pair<const char*, const char*> cases[]{
        {"2026-11-24T09:00", "2026-11-24T08:00:00Z"},         {"2026-07-24 09:00:30", "2026-07-24T07:00:30Z"},
        {"2026-11-24T09:00Z", "2026-11-24T09:00:00Z"},        {"2026-11-24T09:00+05:30", "2026-11-24T03:30:00Z"},
        {"2026-11-24 09:00:00-0800", "2026-11-24T17:00:00Z"}, {"2028-02-29T23:59+01", "2028-02-29T22:59:00Z"},
    };
    for (const auto& [word, moment] : cases) {
        const auto time = timeFrom(word);
        ASSERT_TRUE(time) << word;
        EXPECT_EQ(*time, *dateFromISO8601(moment)) << word;
    }
    for (const char* word : {"", "2026-02-31T09:00", "2027-02-29T09:00", "2026-13-01T09:00", "2026-11-24T24:00",
                             "2026-11-24T09:60", "2026-11-24", "2026-11-24T09:00+", "2026-11-24T09:00+01:0",
                             "2026-11-24T09:00 tomorrow", "26-11-24T09:00", "2026-11-24T9:00"})
        EXPECT_FALSE(timeFrom(word)) << word;
}

TEST(HTMLLinks, SayWhereTheyLead) {
    const NumberedLinks links = numberedLinks(
        "<p>Your <A class=x HREF='https://bank.test/?a=1&amp;b=2'>bank</A>, <a href=http://evil.test>"
        "https://bank.test</a>, <a href=\"#top\">top</a>, <a href=\"https://plain.test/\">plain.test</a>, "
        "<a title=' href=http://good.test>' href=http://bad.test>there</a>, "
        "<a href='https://bank.test/?a=1&amp;b=2'>again</a><!-- <a href=http://hidden.test>x</a> -->"
        "<a href=http://open.test>open <a href=http://next.test>next");
    EXPECT_EQ(links.urls, (std::vector<std::string>{"https://bank.test/?a=1&b=2", "http://evil.test", "http://bad.test",
                                                    "http://open.test", "http://next.test"}));
    for (const char* marked : {">bank [1]</A>", "https://bank.test [2]</a>", ">top</a>", ">plain.test</a>",
                               ">there [3]</a>", ">again [1]</a>", ">open  [4]<a", ">next [5]"})
        EXPECT_THAT(links.html, HasSubstr(marked));

    std::string hostile;
    for (int i = 0; i < 200'000; ++i) hostile += "<a href=\"";
    EXPECT_LE(numberedLinks(hostile).html.size(), hostile.size() * 3);
}

TEST(InputFiles, AreRegularAndOfAStatedSize) {
    const test::TemporaryDirectory folder;
    const auto read = [](const std::filesystem::path& file, std::size_t most) -> std::string {
        try {
            return regularFile(file, file.string(), most);
        } catch (const CommandError& error) {
            return error.sentence();
        }
    };
    ASSERT_EQ(mkfifo((folder / "pipe").c_str(), 0600), 0);
    EXPECT_THAT(read(folder / "pipe", 10), HasSubstr("is no regular file"));
    EXPECT_THAT(read("/dev/zero", 10), HasSubstr("is no regular file"));
    EXPECT_THAT(read(folder.path(), 10), HasSubstr("is a folder"));
    EXPECT_THAT(read(folder / "none", 10), HasSubstr("There is no file"));
    std::ofstream(folder / "text") << "0123456789";
    EXPECT_EQ(read(folder / "text", 10), "0123456789");
    EXPECT_THAT(read(folder / "text", 9), HasSubstr("is larger than"));
    // A sparse file of 40 GB is refused by its size, and one that has none while it is read.
    std::ofstream(folder / "sparse").close();
    std::filesystem::resize_file(folder / "sparse", 40'000'000'000);
    EXPECT_THAT(read(folder / "sparse", longestFile), HasSubstr("is larger than 200 MB"));
    EXPECT_THAT(read("/proc/self/maps", 10), HasSubstr("is larger than"));
}

TEST(JSONText, LetsNothingThroughThatDrivesATerminal) {
    const nlohmann::json document{{"a", "\x1b[2J\x7f\xc2\x9b"
                                        "31m \xe2\x80\xae"
                                        "exe.txt ü 日本 😀"}};
    EXPECT_EQ(textOf(document, JSONForm::oneLine), "{\"a\":\"\\u001b[2J\\u007f\\u009b31m \\u202eexe.txt ü 日本 😀\"}");
    EXPECT_EQ(nlohmann::json::parse(textOf(document)), document);
}

}}
