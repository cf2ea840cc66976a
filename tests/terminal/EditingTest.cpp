// The built programs, and what a person writes in their editor.

#include "support/EnvironmentGuard.h"
#include "terminal/Program.h"
#include "terminal/ProgramHome.h"
#include "terminal/Terminal.h"

#include <algorithm>
#include <filesystem>
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <optional>

namespace velmo { namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using test::contentsOf;
using test::eventually;
using test::Program;
using test::Terminal;
using test::velmo;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr const char* ada = "ada@localhost";
/// Nothing that waits for it goes out in a test.
constexpr const char* someDay = "2099-01-01T09:00:00Z";

/// In a process of its own, and in the running application.
class Editing : public test::ProgramHome, public testing::WithParamInterface<bool> {
  protected:
    void SetUp() override {
        addAccount();
        fs::create_directory(home_ / "tmp");
        if (GetParam()) startApplication();
    }

    void startApplication() {
        application_.emplace("velmo-mail", std::vector<std::string>{});
        ASSERT_TRUE(eventually([&] { return isListening(); }));
    }

    /// A program for $EDITOR, of these shell commands; "$1" is the file, and `text` puts its input in the place of the
    /// text, below recipients and subject.
    std::string editor(const std::string& commands) {
        const fs::path file = home_ / ("editor-" + std::to_string(++editors_));
        test::writeFile(file,
                        "#!/bin/sh\nfile=\"$1\"\ntext() { sed '/^$/q' \"$file\" >\"$file.new\"; cat >>\"$file.new\"; "
                        "mv \"$file.new\" \"$file\"; }\n" +
                            commands + "\n");
        fs::permissions(file, fs::perms::owner_all);
        return file.string();
    }

    static json told(std::vector<std::string> words) {
        words.insert(words.begin(), "--json");
        const auto outcome = velmo(std::move(words));
        EXPECT_EQ(outcome.code, 0) << outcome.err;
        return json::parse(outcome.out, nullptr, false);
    }

    static json outbox() { return told({"outbox"}); }

    static std::string bodyOf(const fs::path& outbox) {
        for (const auto& entry : fs::directory_iterator(outbox))
            if (entry.path().extension() == ".json") return json::parse(contentsOf(entry.path()))["body"];
        return {};
    }

    std::string queuedBody() const { return bodyOf(home_ / "data/Outbox"); }

    std::vector<fs::path> temporaryFiles() const {
        std::vector<fs::path> files;
        for (const auto& entry : fs::recursive_directory_iterator(home_ / "tmp"))
            if (entry.path().filename() == "message.txt") files.push_back(entry.path());
        return files;
    }

    std::vector<std::string> composing(std::vector<std::string> more = {}) const {
        std::vector<std::string> words{"compose", "--to", "bob@example.test", "--subject", "Hello", "--at", someDay};
        words.insert(words.end(), more.begin(), more.end());
        return words;
    }

    /// The number of a message that waits for its time.
    std::string scheduled() {
        test::writeFile(home_ / "body", "first\n");
        return told(composing({"--body-file", (home_ / "body").string()}))["id"];
    }

    std::optional<Program> application_;

  private:
    int editors_ = 0;
    test::EnvironmentGuard temporaryGuard_{"TMPDIR", (home_ / "tmp").string()};
};

INSTANTIATE_TEST_SUITE_P(OwnProcessAndApplication, Editing, testing::Bool());

TEST_P(Editing, OpensTheTextAsItStandsInAPrivateFileAndTakesWhatIsSaved) {
    test::writeFile(home_ / "signature", "Ada\n");
    told({"signature", "set", ada, "--text-file", (home_ / "signature").string()});
    const std::string script =
        editor("cp \"$1\" '" + (home_ / "opened").string() + "'\n" + //
               "stat -c '%a %n' \"$1\" \"$(dirname \"$1\")\" >'" +   //
               (home_ / "modes").string() + "'\n" +                  //
               "{ printf 'Gr\\303\\274\\303\\237e\\r\\n'; sed '1,/^$/d' \"$1\"; } | text; touch \"$1~\"");
    Terminal terminal(composing(), script);
    EXPECT_EQ(terminal.exitCode(), 0) << terminal.seen();
    EXPECT_EQ(contentsOf(home_ / "opened"), "To: bob@example.test\nCc:\nBcc:\nSubject: Hello\n\n\n\n-- \nAda\n");
    EXPECT_EQ(queuedBody(), "Grüße\n\n\n-- \nAda");
    EXPECT_THAT(contentsOf(home_ / "modes"), testing::MatchesRegex("600 .*/message\\.txt\n700 .*\n"));
    EXPECT_TRUE(fs::is_empty(home_ / "tmp") || GetParam());
    EXPECT_THAT(temporaryFiles(), IsEmpty());

    // An answer has its quote below.
    Terminal answering({"reply", "1", "--at", someDay}, editor("cp \"$1\" '" + (home_ / "answer").string() + "'"));
    EXPECT_EQ(answering.exitCode(), 1);
    EXPECT_THAT(contentsOf(home_ / "answer"), HasSubstr("\nSubject: Re: "));
    EXPECT_THAT(contentsOf(home_ / "answer"), HasSubstr("\n\n\n\n-- \nAda\n\nOn "));
    EXPECT_THAT(contentsOf(home_ / "answer"), HasSubstr(" wrote:\n>"));
    EXPECT_THAT(answering.seen(), HasSubstr("left as it was"));
}

TEST_P(Editing, SendsNothingThatThePersonDidNotWrite) {
    struct Case {
        const char* commands;
        const char* sentence;
    };
    const Case cases[]{
        {"echo lost >\"$1\"; exit 3", "ended with the error 3"},
        {"kill -9 $$", "ended by the signal 9"},
        {"true", "No text is left"},
        {"printf ' \\n\\n' >\"$1\"", "No text is left"},
        {"head -c 2000000 /dev/zero | tr '\\0' x >\"$1\"", "too long."},
    };
    for (const auto& [commands, sentence] : cases) {
        Terminal terminal(composing(), editor(commands));
        EXPECT_EQ(terminal.exitCode(), 1) << commands;
        EXPECT_THAT(terminal.seen(), HasSubstr(sentence));
        const bool hasWords =
            std::string_view(commands).contains("lost") || std::string_view(sentence).contains("long");
        EXPECT_EQ(terminal.seen().contains("What you wrote is kept in"), hasWords) << commands;
    }
    // What was written with an editor that failed, and what was too long.
    EXPECT_EQ(temporaryFiles().size(), 2U);
    Terminal without(composing(), (home_ / "no such editor").string());
    EXPECT_EQ(without.exitCode(), 1);
    // What is wrong otherwise is told before they begin to write.
    const auto marker = home_ / "was opened";
    for (const auto& words : std::vector<std::vector<std::string>>{
             composing({"--attach", "no such file"}), composing({"--cc", "broken"}), {"draft", "edit", "1"}}) {
        Terminal terminal(words, editor("touch '" + marker.string() + "'; echo x >\"$1\""));
        EXPECT_EQ(terminal.exitCode(), 1) << testing::PrintToString(words);
        EXPECT_FALSE(fs::exists(marker)) << terminal.seen();
    }
    EXPECT_EQ(outbox(), json::array());
}

TEST_P(Editing, TakesThePipeForTheTextAndSendsNothingWithoutOne) {
    const auto pipe = home_ / "pipe", empty = home_ / "empty";
    test::writeFile(pipe, "from a pipe\n");
    test::writeFile(empty, " \n\n");
    EXPECT_EQ(velmo(composing(), pipe).code, 0);
    EXPECT_EQ(queuedBody(), "from a pipe");
    const std::string first = outbox()[0]["id"];
    EXPECT_EQ(velmo({"outbox", "discard", first}).code, 0);

    const char* link = "mailto:bob@example.test?bcc=eve@example.test&subject=x&body=y";
    for (const auto& words : std::vector<std::vector<std::string>>{composing(),
                                                                   composing({"--body-file", empty.string()}),
                                                                   {"reply", "1"},
                                                                   {"mailto", link},
                                                                   {"mailto", link, "--no-edit"},
                                                                   {"mailto", link, "--body-file", pipe.string()}}) {
        const auto refused = velmo(words, empty);
        EXPECT_EQ(refused.code, 2) << testing::PrintToString(words) << refused.err;
        EXPECT_THAT(refused.err, HasSubstr("--")) << "a way out is named";
    }
    EXPECT_EQ(outbox(), json::array());

    EXPECT_EQ(velmo(composing({"--no-edit"}), empty).code, 0);
    EXPECT_EQ(velmo({"mailto", link, "--yes", "--at", someDay}, empty).code, 0);
    EXPECT_EQ(outbox().size(), 2U);
}

TEST_P(Editing, ALinkSendsOnlyWhatThePersonSawAndAgreedTo) {
    const std::vector<std::string> words{"mailto", "mailto:bob@example.test?bcc=eve@example.test&body=y", "--at",
                                         someDay};
    Terminal agreeing(words, editor("echo z >>\"$1\""));
    ASSERT_TRUE(agreeing.shows("Send it? [y/N]")) << agreeing.seen();
    EXPECT_THAT(agreeing.seen(), HasSubstr("Bcc: eve@example.test"));
    agreeing.type("y\n");
    EXPECT_EQ(agreeing.exitCode(), 0) << agreeing.seen();
    EXPECT_EQ(outbox().size(), 1U);
    EXPECT_EQ(queuedBody(), "y\nz");

    // Its servers are out of reach, so that the draft that is stored instead waits here.
    Terminal declining(words, editor("echo declined >>\"$1\""));
    ASSERT_TRUE(declining.shows("[y/N]")) << declining.seen();
    declining.type("\n");
    EXPECT_EQ(declining.exitCode(), 1) << declining.seen();
    EXPECT_THAT(declining.seen(), HasSubstr("What you wrote waits in the outbox"));
    const json left = outbox();
    ASSERT_EQ(left.size(), 2U);
    EXPECT_EQ(left[1]["state"], "failed");
}

TEST_P(Editing, ShowsWhomAMessageGoesToAndLetsThemBeChanged) {
    const auto opened = home_ / "opened";
    const std::vector<std::string> link{"mailto",
                                        "mailto:%22Bob%2C%20B.%22%20%3Cbob@example.test%3E?bcc=eve@example.test&"
                                        "subject=x%0D%0ABcc:%20mallory@example.test&body=y",
                                        "--at", someDay, "--yes"};
    Terminal terminal(link, editor("cp \"$1\" '" + opened.string() +
                                   "'\n"
                                   "sed -i -e 's/^Bcc:.*/bcc:/' -e 's/^Cc:.*/Cc: Zo\303\253 <zoe@example.test>,\\n  "
                                   "BOB@example.test/' -e 's/^Subject:.*/Subject: Why/' \"$1\"; echo z >>\"$1\""));
    EXPECT_EQ(terminal.exitCode(), 0) << terminal.seen();
    const std::string file = contentsOf(opened);
    EXPECT_THAT(file, HasSubstr("\nBcc: eve@example.test\n"));
    EXPECT_THAT(file, testing::Not(HasSubstr("\nBcc: mallory")));
    const json item = outbox().at(0);
    ASSERT_EQ(item["to"].size(), 1U) << item;
    EXPECT_EQ(item["to"][0]["name"], "Bob, B.");
    ASSERT_EQ(item["cc"].size(), 1U) << "each once: " << item;
    EXPECT_EQ(item["cc"][0]["email"], "zoe@example.test");
    EXPECT_EQ(item["bcc"], json::array());
    EXPECT_EQ(item["subject"], "Why");
    // Without those lines nobody knows what was meant.
    for (const char* commands : {"echo x >\"$1\"", "sed -i 1iTwo: b@x.test \"$1\"; echo x >>\"$1\""}) {
        Terminal broken(composing(), editor(commands));
        EXPECT_EQ(broken.exitCode(), 1);
        EXPECT_THAT(broken.seen(), HasSubstr("above the text"));
        EXPECT_THAT(broken.seen(), HasSubstr("kept in"));
    }
    EXPECT_EQ(outbox().size(), 1U);
}

TEST_P(Editing, LeavesInterruptsToTheEditor) {
    const auto waiting = editor("trap 'echo heard' INT\necho ready; read line\necho written | text");
    Terminal terminal(composing(), waiting);
    ASSERT_TRUE(terminal.shows("ready")) << terminal.seen();
    terminal.type("\x03");
    ASSERT_TRUE(terminal.shows("heard")) << terminal.seen();
    terminal.type("\n");
    EXPECT_EQ(terminal.exitCode(), 0) << terminal.seen();
    EXPECT_EQ(queuedBody(), "written");
}

TEST_P(Editing, KeepsWhatWasWrittenWhenItsProgramIsEnded) {
    const auto waiting = editor("echo precious >\"$1\"; echo ready; read line");
    Terminal terminal(composing(), waiting);
    ASSERT_TRUE(terminal.shows("ready")) << terminal.seen();
    terminal.signal(SIGTERM);
    EXPECT_EQ(terminal.exitCode(), 1);
    const auto kept = temporaryFiles();
    ASSERT_EQ(kept.size(), 1U);
    EXPECT_EQ(contentsOf(kept[0]), "precious\n");
    EXPECT_THAT(terminal.seen(), HasSubstr("kept in"));

    // A draft needs the server, which is not there.
    Terminal offline({"compose", "--draft"}, editor("echo offline | text"));
    EXPECT_EQ(offline.exitCode(), 1);
    EXPECT_THAT(offline.seen(), HasSubstr("What you wrote waits in the outbox as"));
    EXPECT_EQ(queuedBody(), "offline");
    EXPECT_EQ(temporaryFiles().size(), 1U);
}

TEST_P(Editing, ChangesAMessageOfTheOutboxOrLeavesItThere) {
    const std::string id = scheduled();
    const json before = outbox();
    for (const char* commands : {"echo lost >\"$1\"; exit 1", "true >\"$1\""}) {
        Terminal failing({"outbox", "edit", id}, editor(commands));
        EXPECT_EQ(failing.exitCode(), 1);
        EXPECT_EQ(outbox(), before) << failing.seen();
    }
    Terminal mistaken({"outbox", "edit", id, "--without", "carol@example.test"}, editor("echo second >>\"$1\""));
    EXPECT_EQ(mistaken.exitCode(), 1);
    EXPECT_THAT(mistaken.seen(), HasSubstr("does not go to carol@example.test"));
    EXPECT_EQ(outbox(), before);
    // What was written stays with a message that can't go as it was changed.
    Terminal nobody({"outbox", "edit", id}, editor("sed -i 's/^To:.*/To: bob/' \"$1\"; echo second >>\"$1\""));
    EXPECT_EQ(nobody.exitCode(), 1);
    EXPECT_THAT(nobody.seen(), HasSubstr("Check these addresses: bob"));
    EXPECT_EQ(outbox(), before);
    EXPECT_EQ(temporaryFiles().size(), 2U) << "with the one of the editor that failed";

    Terminal changing({"outbox", "edit", id, "--cc", "carol@example.test", "--at", someDay},
                      editor("echo third >>\"$1\""));
    EXPECT_EQ(changing.exitCode(), 0) << changing.seen();
    EXPECT_EQ(queuedBody(), "first\nthird");
    json left = outbox();
    ASSERT_EQ(left.size(), 1U);
    EXPECT_EQ(left[0]["messageID"], before[0]["messageID"]);

    // One that has a time keeps it, and its text where nobody edits it.
    const json again = told({"outbox", "edit", left[0]["id"], "--subject", "Bye"});
    EXPECT_EQ(again["state"], "scheduled");
    EXPECT_EQ(outbox()[0]["sendAt"], someDay);
    EXPECT_EQ(outbox()[0]["subject"], "Bye");
    test::writeFile(home_ / "fourth", "fourth\n");
    told({"outbox", "edit", again["id"], "--body-file", (home_ / "fourth").string()});
    EXPECT_EQ(queuedBody(), "fourth");
}

TEST_P(Editing, LosesNoMessageWhoseProgramEndsWhileItIsEdited) {
    const std::string id = scheduled();
    const json before = outbox();
    const auto waiting = editor("echo precious >\"$1\"; echo ready; read line");
    Terminal terminal({"outbox", "edit", id}, waiting);
    ASSERT_TRUE(terminal.shows("ready")) << terminal.seen();
    if (!GetParam()) {
        terminal.signal(SIGKILL);
        EXPECT_EQ(terminal.exitCode(), -1);
        const json left = outbox();
        ASSERT_EQ(left.size(), 1U);
        EXPECT_EQ(left[0]["state"], "failed");
        EXPECT_THAT(std::string(left[0]["failure"]), HasSubstr("neither sent nor saved"));
    } else {
        application_->signal(SIGTERM);
        EXPECT_EQ(application_->outcome().code, 0);
        EXPECT_EQ(outbox(), before);
        terminal.type("\n");
        EXPECT_EQ(terminal.exitCode(), 1);
        EXPECT_THAT(terminal.seen(), HasSubstr("What you wrote is kept in"));
        EXPECT_THAT(terminal.seen(), HasSubstr("has quit"));
    }
    ASSERT_EQ(temporaryFiles().size(), 1U);
    EXPECT_THAT(contentsOf(temporaryFiles()[0]), testing::StartsWith("precious"));
    EXPECT_EQ(queuedBody(), "first");
}

TEST_P(Editing, SetsASignatureInBothForms) {
    const auto pieces = home_ / "pieces.json", text = home_ / "text";
    const std::vector<std::string> show{"signature", "show", ada};
    EXPECT_EQ(velmo(show), (test::Outcome{0, "", ""}));
    test::writeFile(pieces, R"([{"text": "Ada ", "isBold": true}, {"text": "Lovelace", "link": "https://ada.test"}])");
    json told_ = told({"signature", "set", "ADA@localhost", "--html-pieces", pieces.string()});
    EXPECT_EQ(told_["text"], "Ada Lovelace");
    EXPECT_EQ(told_["pieces"][1]["link"], "https://ada.test");

    for (const char* bad : {"{", "[1]", R"([{"text": 5}])", "{}"}) {
        test::writeFile(pieces, bad);
        const auto refused = velmo({"signature", "set", ada, "--html-pieces", pieces.string()});
        EXPECT_EQ(refused.code, 1) << bad;
        EXPECT_THAT(refused.err, HasSubstr("no JSON array of the pieces"));
        EXPECT_EQ(told(show), told_) << bad;
    }

    // Whoever only looks at it in the editor keeps its styles; another text has none.
    EXPECT_EQ(Terminal({"signature", "set", ada}, "true").exitCode(), 0);
    EXPECT_EQ(told(show), told_);
    EXPECT_EQ(Terminal({"signature", "set", ada}, editor("sed -i s/Ada/A./ \"$1\"")).exitCode(), 0);
    EXPECT_EQ(told(show)["text"], "A. Lovelace");
    EXPECT_EQ(told(show)["pieces"], json::array());
    test::writeFile(text, "line\r\n<two>\n\n");
    EXPECT_EQ(velmo({"signature", "set", ada}, text).code, 0);
    EXPECT_EQ(velmo(show).out, "line\n<two>\n");
    EXPECT_EQ(velmo({"signature", "set", ada}).code, 0);
    EXPECT_EQ(velmo(show).out, "");

    EXPECT_EQ(told({"accounts", "name", ada, " Ada\x1b[1m Lovelace "})["name"], "Ada[1m Lovelace");
    EXPECT_EQ(told({"accounts"})[0]["name"], "Ada[1m Lovelace");
    EXPECT_EQ(told({"accounts", "name", ada, ""})["name"], "");
}

}}
