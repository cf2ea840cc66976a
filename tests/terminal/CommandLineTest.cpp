#include "terminal/CommandLine.h"

#include "base/Text.h"
#include "support/EnvironmentGuard.h"
#include "support/TemporaryDirectory.h"
#include "terminal/ConsoleStreams.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace velmo { namespace {

using nlohmann::json;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

using test::Outcome;

/// Runs the program in a home of its own.
class CommandLine : public testing::Test {
  protected:
    Outcome run(std::vector<std::string> words) {
        test::ConsoleStreams streams;
        const int code = runCommandLine(std::move(words), streams.console());
        return streams.outcome(code);
    }

    json runJSON(std::vector<std::string> words) {
        words.insert(words.begin(), "--json");
        const Outcome outcome = run(std::move(words));
        EXPECT_EQ(outcome.code, 0) << outcome.err;
        return json::parse(outcome.out);
    }

    test::TemporaryDirectory home_;

  private:
    test::EnvironmentGuard guard_{"VELMO_HOME", home_.path().string()};
};

TEST_F(CommandLine, WrongUsageIsTwoFailureIsOneEachWithASentence) {
    for (const auto& words :
         std::vector<std::vector<std::string>>{{},
                                               {"no-such-command"},
                                               {"list", "--limit", "0"},
                                               {"read"},
                                               {"read", "x"},
                                               {"accounts", "add"},
                                               {"accounts", "add", "--email", "a@b.c", "--imap", "host:99999:tls"},
                                               {"accounts", "add", "--email", "a@b.c", "--provider", "nobody"}}) {
        const Outcome outcome = run(words);
        EXPECT_EQ(outcome.code, 2) << testing::PrintToString(words);
        EXPECT_TRUE(outcome.out.empty());
        EXPECT_FALSE(outcome.err.empty());
    }
    for (const auto& words : std::vector<std::vector<std::string>>{{"sync"},
                                                                   {"read", "999999"},
                                                                   {"read", "--file", (home_ / "none.eml").string()},
                                                                   {"accounts", "remove", "nobody@example.com"},
                                                                   {"list", "--mailbox", "No/Such"}}) {
        const Outcome outcome = run(words);
        EXPECT_EQ(outcome.code, 1) << testing::PrintToString(words);
        EXPECT_TRUE(outcome.err.ends_with(".\n") || outcome.err.ends_with("…\n")) << outcome.err;
    }
    // Where a page of the provider signs in, nobody is asked for a password.
    EXPECT_THAT(run({"accounts", "add", "--email", " ada@Outlook.com ", "--password-stdin"}).err,
                HasSubstr("Outlook sign-in isn't available"));
    EXPECT_EQ(run({"--help"}).code, 0);
    EXPECT_THAT(run({"list", "--help"}).out, HasSubstr("--unread"));
}

TEST_F(CommandLine, ShowsSampleMailUntilThereIsAnAccount) {
    const Outcome shown = run({"list"});
    EXPECT_EQ(shown.code, 0);
    EXPECT_THAT(shown.err, HasSubstr("velmo accounts add"));
    EXPECT_EQ(shown.out.find('\x1b'), std::string::npos);

    const json rows = runJSON({"list", "--limit", "1000"});
    ASSERT_GT(rows.size(), 15U);
    for (const char* key :
         {"id",     "account",        "mailbox",     "uid",       "messageID", "threadKey", "from",    "to",
          "cc",     "subject",        "date",        "unread",    "flagged",   "answered",  "snippet", "category",
          "labels", "hasAttachments", "attachments", "hasInvite", "size"})
        EXPECT_TRUE(rows[0].contains(key)) << key;
    for (std::size_t i = 1; i < rows.size(); ++i) EXPECT_GE(rows[i - 1]["date"], rows[i]["date"]);

    const json unread = runJSON({"list", "--unread", "--limit", "1000"});
    EXPECT_LT(unread.size(), rows.size());
    for (const auto& row : unread) EXPECT_TRUE(row["unread"]);
    EXPECT_EQ(runJSON({"list", "--limit", "3"}).size(), 3U);
    EXPECT_NE(runJSON({"list", "--mailbox", "SENT"}).size(), 0U);
    EXPECT_GE(runJSON({"mailboxes"}).size(), 4U);
    EXPECT_TRUE(runJSON({"accounts"}).empty());

    // Lists of sent mail name whom it went to, by whatever name the list is asked for.
    for (const char* mailbox : {"SENT", "Sent", "drafts"})
        EXPECT_THAT(run({"list", "--mailbox", mailbox}).out, HasSubstr("  To: ")) << mailbox;
    EXPECT_THAT(shown.out, Not(HasSubstr("  To: ")));

    // An empty list says why it is empty.
    EXPECT_THAT(run({"search", "nosuchwordanywhere"}).err, StartsWith("Nothing was found.\n"));
    EXPECT_THAT(run({"list", "--mailbox", "drafts", "--unread"}).err, StartsWith("No Messages\n"));
    EXPECT_THAT(run({"list", "--page", "0.0"}).err, StartsWith("There are no more messages.\n"));

    const json message = runJSON({"read", std::to_string(rows[0]["id"].get<int>())});
    const auto snippet = message["snippet"].get<std::string>();
    EXPECT_EQ(text::trimmed(snippet), rows[0]["snippet"].get<std::string>());
    EXPECT_TRUE(message["headers"][0].is_array());
}

TEST_F(CommandLine, SearchesAndActsOnMessagesByTheirNumbers) {
    const json rows = runJSON({"list", "--limit", "2"});
    const auto first = rows[0]["id"].get<int>(), second = rows[1]["id"].get<int>();
    const json labelled = runJSON({"label", std::to_string(first), std::to_string(second), "cat:receipts"});
    EXPECT_EQ(labelled["messages"], json({first, second}));
    const Outcome unknown = run({"unlabel", std::to_string(first), "cat:nothing"});
    EXPECT_EQ(unknown.code, 1);
    EXPECT_THAT(unknown.err, HasSubstr("There is no label cat:nothing."));
    for (const std::vector<std::string>& words :
         {std::vector<std::string>{"label", "1"}, {"label", "x", "cat:receipts"}, {"flag"}, {"seen", "1", "x"}})
        EXPECT_EQ(run(words).code, 2) << testing::PrintToString(words);

    // Samples have no server, and go with the process.
    const Outcome flagged = run({"flag", std::to_string(first)});
    EXPECT_EQ(flagged.code, 0);
    EXPECT_THAT(flagged.err, HasSubstr("sample mail"));
    for (const char* action : {"archive", "trash", "junk", "inbox", "delete"}) {
        const Outcome refused = run({action, std::to_string(first)});
        EXPECT_EQ(refused.code, 1) << action;
        EXPECT_THAT(refused.err, HasSubstr("Sample mail")) << action;
    }

    const auto subject = rows[0]["subject"].get<std::string>();
    const json found = runJSON({"search", subject});
    ASSERT_FALSE(found.empty());
    EXPECT_TRUE(std::ranges::any_of(found, [&](const json& row) { return row["id"] == first; })) << subject;
    EXPECT_TRUE(runJSON({"search", "nosuchwordanywhere"}).empty());
    const json thread = runJSON({"list", "--thread", std::to_string(first)});
    for (const auto& row : thread) EXPECT_EQ(row["threadKey"], rows[0]["threadKey"]);
    EXPECT_GE(runJSON({"labels"}).size(), 6U);
}

TEST_F(CommandLine, ReadsAMessageFromAFileAndSavesWhatItHolds) {
    const std::string source = "From: =?utf-8?Q?Zo=C3=AB?= <zoe@example.test>\r\nSubject: \x1b[2Jhello\r\n"
                               "Content-Type: multipart/mixed; boundary=b\r\n\r\n"
                               "--b\r\nContent-Type: text/plain; charset=iso-8859-1\r\n\r\ngr\xFC\xDF\x1b[31m\r\n"
                               "--b\r\nContent-Type: application/pdf; name=\"../x.pdf\"\r\n"
                               "Content-Transfer-Encoding: base64\r\n\r\nJVBERg==\r\n--b--\r\n";
    const auto file = (home_ / "message.eml").string();
    test::writeFile(file, source);

    const json message = runJSON({"read", "--file", file, "--save", (home_ / "out").string()});
    EXPECT_EQ(message["plainText"], "grüß\x1b[31m");
    EXPECT_EQ(message["html"], nullptr);
    ASSERT_EQ(message["attachments"].size(), 1U);
    EXPECT_EQ(message["attachments"][0]["size"], 4);
    EXPECT_EQ(message["attachments"][0]["sha256"], "315d429b7714cedb6ad04ac31240145257692630457f3c88253c5beceac76027");
    EXPECT_EQ(test::contentsOf(home_ / "out/_x.pdf"), "%PDF");

    const Outcome shown = run({"read", "--file", file});
    EXPECT_THAT(shown.out, HasSubstr("Zoë <zoe@example.test>"));
    EXPECT_THAT(shown.out, HasSubstr("grüß"));
    EXPECT_EQ(shown.out.find('\x1b'), std::string::npos);
    EXPECT_EQ(run({"read", "--file", file, "--source"}).out, source);
}

}}
