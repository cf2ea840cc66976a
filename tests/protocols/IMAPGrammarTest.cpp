// How bytes become responses, and responses messages.

#include "protocols/IMAPBodyStructure.h"
#include "protocols/IMAPClient.h"
#include "protocols/IMAPEnvelope.h"
#include "protocols/IMAPFetchResult.h"
#include "protocols/IMAPMailbox.h"
#include "protocols/IMAPResponse.h"
#include "protocols/MailboxRole.h"

#include <chrono>
#include <gtest/gtest.h>

namespace velmo::test { namespace {

/// The values in one line: atoms as they stand, strings in quotes, NIL as "-".
std::string shown(IMAPValues values) {
    std::string out;
    for (const IMAPValue value : values) {
        if (!out.empty()) out += ' ';
        switch (value.kind()) {
        case IMAPValue::Kind::atom: out += value.bytes(); break;
        case IMAPValue::Kind::string: out += "\"" + std::string(value.bytes()) + "\""; break;
        case IMAPValue::Kind::list: out += "(" + shown(value.children()) + ")"; break;
        case IMAPValue::Kind::nil: out += "-"; break;
        }
    }
    return out;
}

TEST(IMAPGrammar, ReadsValues) {
    const struct {
        std::string line;
        const char* values;
    } cases[] = {
        {"* 12 EXISTS", "12 EXISTS"},
        {"*   LIST  (\\Seen  \\*) NiL \"NIL\" \"\" ", "LIST (\\Seen \\*) - \"NIL\" \"\""},
        {"* X \"a\\\\b\\\"c\\d\" \"plain\"", "X \"a\\b\"cd\" \"plain\""},
        {"* 1 FETCH (BODY[HEADER.FIELDS (A B)]<0> {3+}\r\n)\r\n UID 5)",
         "1 FETCH (BODY[HEADER.FIELDS (A B)]<0> \")\r\n\" UID 5)"},
        {"* X ~{2}\r\nab {0}\r\n{1}x()", "X \"ab\" \"\" \"x\" ()"},
        {"* X a]b ~x {", nullptr},
        {"* X ~x a{3}\r\nrest", "X ~x a{3}"},
        {"* ((a)(b (c)))", "((a) (b (c)))"},
    };
    for (const auto& [line, values] : cases) {
        SCOPED_TRACE(line);
        if (values) {
            EXPECT_EQ(shown(parseResponse(line).values()), values);
        } else {
            EXPECT_THROW(parseResponse(line), IMAPParseError);
        }
    }
}

TEST(IMAPGrammar, ReadsStatusesAndContinuations) {
    const IMAPResponse ok = parseResponse("* oK [CAPABILITY IMAP4rev1 [X] IDLE]  ready \xff ");
    EXPECT_EQ(ok.kind(), IMAPResponse::Kind::untaggedStatus);
    EXPECT_EQ(ok.code(), "CAPABILITY IMAP4rev1 [X] IDLE");
    EXPECT_EQ(ok.text(), "ready \xEF\xBF\xBD");
    const IMAPResponse bare = parseResponse("* OK");
    EXPECT_FALSE(bare.code());
    EXPECT_EQ(bare.text(), "");
    const IMAPResponse tagged = parseResponse("b12 BAD [unclosed");
    EXPECT_TRUE(tagged.isTagged("b12"));
    EXPECT_EQ(tagged.status(), IMAPResponse::Status::bad);
    EXPECT_EQ(tagged.code(), "unclosed");
    EXPECT_EQ(parseResponse("+  go on \t").text(), "go on");
    EXPECT_EQ(parseResponse("+").kind(), IMAPResponse::Kind::continuation);
}

TEST(IMAPGrammar, SaysWhatIsWrong) {
    const struct {
        const char* bytes;
        IMAPParseError error;
    } cases[] = {
        {"", IMAPParseError::unexpected("empty atom")},
        {"A1 MAYBE ok", IMAPParseError::unexpected("status MAYBE")},
        {"A1", IMAPParseError::unexpected("empty atom")},
        {"* LIST (a (b)", IMAPParseError::unexpectedEnd()},
        {"* X )", IMAPParseError::unexpected("empty atom")},
        {"* X (a\r\nb)", IMAPParseError::unexpected("empty atom")},
        {"* X \"abc\\", IMAPParseError::unexpectedEnd()},
        {"* X {5}\r\nabc", IMAPParseError::unexpectedEnd()},
        {"* X {99999999999999999999}\r\nabc", IMAPParseError::unexpected("literal length")},
        {"* X {-1}\r\nabc", IMAPParseError::unexpected("literal length")},
    };
    for (const auto& [bytes, error] : cases) {
        SCOPED_TRACE(bytes);
        try {
            parseResponse(bytes);
            ADD_FAILURE() << "accepted";
        } catch (const IMAPParseError& thrown) {
            EXPECT_EQ(thrown, error) << thrown.what();
        }
    }
}

TEST(IMAPGrammar, FindsAnnouncedLiterals) {
    const struct {
        const char* line;
        std::optional<std::int64_t> length;
    } cases[] = {{"x {123}", 123},
                 {"{123+}", 123},
                 {"{12++}", 12},
                 {"{0}", 0},
                 {"{}", {}},
                 {"{+}", {}},
                 {"{1+2}", {}},
                 {"{-5}", {}},
                 {"{5} ", {}},
                 {"5}", {}},
                 {"", {}},
                 {"{9223372036854775807}", 9223372036854775807},
                 {"{9223372036854775808}", {}}};
    for (const auto& [line, length] : cases) EXPECT_EQ(literalLength(line), length) << line;
}

/// Time for reading, comparing and dropping all that a response can become.
std::chrono::duration<double> timeFor(const Bytes& bytes) {
    const auto start = std::chrono::steady_clock::now();
    try {
        const IMAPResponse response = parseResponse(bytes);
        const auto result = IMAPFetchResult::read(response.values());
        for (const IMAPValue value : response.values()) EXPECT_TRUE(value == value);
        if (result && result->bodyStructure) {
            const IMAPBodyStructure copy = *result->bodyStructure;
            EXPECT_EQ(copy, *result->bodyStructure);
        }
    } catch (const IMAPParseError&) {
    }
    return std::chrono::steady_clock::now() - start;
}

TEST(IMAPGrammar, HostileShapesNeitherOverflowNorCrawl) {
    const auto repeated = [](std::string_view piece, std::size_t count) {
        std::string out;
        for (std::size_t i = 0; i < count; ++i) out += piece;
        return out;
    };
    constexpr std::size_t many = 200'000;
    const std::string shapes[] = {
        "* 1 FETCH " + repeated("(", 1'000'000),
        "* 1 FETCH (BODYSTRUCTURE " + repeated("(", many) + repeated(")", many) + ")",
        "* 1 FETCH (ENVELOPE " + repeated("(", many) + repeated(")", many) + ")",
        "* " + repeated("[", many),
        "* OK " + repeated("[", many),
        "* 1 FETCH (FLAGS (" + repeated("{0}\r\n", many) + "))",
        "* 1 FETCH (FLAGS (" + repeated("\"\\a\"", many) + "))",
        "* 1 FETCH (BODYSTRUCTURE " + repeated("(", 99) + repeated("(a b c d e f 1)", many / 10) + repeated(")", 99) +
            ")",
    };
    for (const std::string& shape : shapes) EXPECT_LT(timeFor(shape).count(), 5.0) << shape.substr(0, 40);
}

IMAPFetchResult fetched(const std::string& items) {
    const IMAPResponse response = parseResponse("* 7 FETCH (" + items + ")");
    return IMAPFetchResult::read(response.values()).value_or(IMAPFetchResult{});
}

TEST(IMAPFetchResult, ReadsWhatItCanAndLeavesTheRest) {
    const IMAPFetchResult result =
        fetched("uid 9 FLAGS (\\Seen \"x\" $Y) RFC822.SIZE 44 MODSEQ (65) X-GM-THRID 1278455344230334865 (odd) 5 "
                "INTERNALDATE \"17-Jul-1996 02:44:25 -0730\" Body[Header.Fields (A)] \"h\" BODY[TEXT] NIL BINARY[2]<0> "
                "\"b\" LAST");
    EXPECT_EQ(result.sequence, 7);
    EXPECT_EQ(result.uid, 9U);
    EXPECT_EQ(result.flags, (std::set<std::string>{"\\Seen", "$Y"}));
    EXPECT_EQ(result.size, 44);
    EXPECT_EQ(result.modSeq, 65U);
    EXPECT_EQ(result.gmailThreadID, 1278455344230334865U);
    EXPECT_EQ(iso8601(result.internalDate.value_or(Date{})), "1996-07-17T10:14:25Z");
    EXPECT_EQ(result.sections, (std::map<std::string, Bytes>{{"Header.Fields (A)", "h"}, {"2", "b"}}));

    const IMAPFetchResult broken = fetched("UID 4294967296 FLAGS NIL INTERNALDATE \"yesterday\" MODSEQ () ENVELOPE (1) "
                                           "BODYSTRUCTURE (a b) RFC822.SIZE x");
    EXPECT_FALSE(broken.uid || broken.flags || broken.internalDate || broken.modSeq || broken.envelope ||
                 broken.bodyStructure || broken.size);
    for (const char* line : {"* 7 FETCH (UID)", "* 7 FETCH NIL", "* x FETCH (UID 1)", "* 7 EXPUNGE", "* OK fine"})
        EXPECT_FALSE(IMAPFetchResult::read(parseResponse(line).values())) << line;
}

TEST(IMAPFetchResult, ReadsTheEnvelope) {
    const auto envelope =
        fetched("ENVELOPE (\"Wed, 17 Jul 1996 02:23:25 -0700 (PDT)\" \"=?utf-8?q?Gr=C3=BC=C3=9Fe?=\r\n\t an alle\" "
                "((\"=?utf-8?q?J=C3=B6rg?=\" NIL \"j\" \"x.test\")(\"\" NIL n y)) NIL BAD "
                "((NIL NIL \"team\" NIL)(NIL NIL \"a\" \"b\")(NIL NIL NIL NIL)(x)) NIL NIL \"<r@x>\" \"<m@x>\")")
            .envelope;
    ASSERT_TRUE(envelope);
    EXPECT_EQ(iso8601(envelope->date.value_or(Date{})), "1996-07-17T09:23:25Z");
    EXPECT_EQ(envelope->subject, "Grüße an alle");
    EXPECT_EQ(envelope->from, (std::vector<IMAPAddress>{{"Jörg", "j@x.test"}, {{}, "n@y"}}));
    EXPECT_EQ(envelope->to, (std::vector<IMAPAddress>{{{}, "a@b"}}));
    EXPECT_TRUE(envelope->replyTo.empty());
    EXPECT_EQ(envelope->inReplyTo, "<r@x>");
    EXPECT_EQ(envelope->messageID, "<m@x>");
}

TEST(IMAPFetchResult, ReadsTheBodyStructure) {
    const auto structure =
        fetched(
            "BODY (((\"TEXT\" \"PLAIN\" (\"Charset\" \"UTF-8\" \"odd\") NIL NIL \"BASE64\" 40 1)(broken)"
            "(\"TEXT\" \"HTML\" NIL NIL NIL NIL x 1 NIL (\"INLINE\" NIL)) \"ALTERNATIVE\")"
            "(\"MESSAGE\" \"RFC822\" NIL NIL NIL \"7BIT\" 342 () () 5 NIL (\"ATTACHMENT\" (\"FileName\" \"a.eml\")))"
            "(\"IMAGE\" \"PNG\" (\"NAME\" \"=?utf-8?q?x=2EICS?=\") \"<id@x>\" NIL \"BASE64\" 9 NIL (\"INLINE\" NIL)))")
            .bodyStructure;
    ASSERT_TRUE(structure);
    const std::vector<IMAPBodyPart> parts = flattenedParts(*structure);
    ASSERT_EQ(parts.size(), 4U);
    EXPECT_EQ(parts[0].section, "1.1");
    EXPECT_EQ(parts[0].parameters, (std::map<std::string, std::string>{{"charset", "UTF-8"}}));
    EXPECT_EQ(parts[0].encoding, "base64");
    EXPECT_EQ(parts[1].section, "1.3");
    EXPECT_EQ(parts[1].encoding, "7bit");
    EXPECT_EQ(parts[1].size, 0);
    EXPECT_EQ(parts[1].disposition, "inline");
    EXPECT_EQ(parts[2].disposition, "attachment");
    EXPECT_EQ(parts[2].dispositionParameters.at("filename"), "a.eml");
    EXPECT_EQ(parts[3].contentID, "id@x");
    EXPECT_EQ(parts[3].disposition, "inline");
    EXPECT_TRUE(hasCalendarPart(*structure));
    EXPECT_EQ(std::get<std::string>(structure->nodes()[0].content), "mixed");
    EXPECT_EQ(std::get<std::string>(structure->nodes()[1].content), "alternative");

    const IMAPBodyStructure single =
        fetched("BODYSTRUCTURE (\"TEXT\" \"CALENDAR\" NIL NIL NIL \"7BIT\" 1 1)").bodyStructure.value();
    EXPECT_EQ(flattenedParts(single)[0].section, "1");
    EXPECT_TRUE(hasCalendarPart(single));
    const std::vector<IMAPBodyStructure> children{single, single};
    EXPECT_FALSE(IMAPBodyStructure::multipart("mixed", children) == *structure);
    EXPECT_EQ(flattenedParts(IMAPBodyStructure::multipart("mixed", children)).size(), 2U);
}

TEST(IMAPAddress, IsFormattedForAHeader) {
    const std::pair<IMAPAddress, const char*> cases[] = {{{{}, "a@b"}, "a@b"},
                                                         {{"", "a@b"}, "a@b"},
                                                         {{"Ann B", "a@b"}, "Ann B <a@b>"},
                                                         {{"B., \"A\" \\", "a@b"}, "\"B., \\\"A\\\" \\\" <a@b>"}};
    for (const auto& [address, text] : cases) EXPECT_EQ(address.formatted(), text);
}

TEST(SetPieces, FitIntoACommandLineAndHoldEverything) {
    std::vector<std::uint32_t> gaps;
    for (std::uint32_t uid = 4'000'000'000; gaps.size() < 20'000; uid += 2) gaps.push_back(uid);
    const std::string whole = uidSet(gaps);
    std::string joined;
    for (const auto& piece : setPieces(whole)) {
        EXPECT_LE(piece.size(), longestSet);
        joined += (joined.empty() ? "" : ",") + piece;
    }
    EXPECT_EQ(joined, whole);
    EXPECT_EQ(setPieces("1:*"), std::vector<std::string>{"1:*"});
}

using Roles = std::vector<std::pair<std::string, MailboxRole>>;

Roles rolesOf(std::vector<IMAPMailbox> mailboxes) {
    assignRoles(mailboxes);
    Roles roles;
    for (const auto& mailbox : mailboxes)
        if (mailbox.role != MailboxRole::other) roles.emplace_back(mailbox.path, mailbox.role);
    return roles;
}

TEST(MailboxRole, OfAnAccountGoesToWhatTheServerNamesAndThenToTheTop) {
    using enum MailboxRole;
    const auto mailbox = [](std::string path, std::set<std::string> attributes = {}) {
        return IMAPMailbox{std::move(path), "/", std::move(attributes), other};
    };
    EXPECT_EQ(rolesOf({mailbox("Bin"), mailbox("Rubbish", {"\\trash"}), mailbox("Old/Drafts"), mailbox("Drafts"),
                       mailbox("INBOX")}),
              (Roles{{"Rubbish", trash}, {"Drafts", drafts}, {"INBOX", inbox}}));
    EXPECT_EQ(rolesOf({mailbox("Bin"), mailbox("Rubbish", {"\\Trash", "\\NonExistent"}),
                       mailbox("Sent", {"\\NoSelect"}), mailbox("Work/Sent")}),
              (Roles{{"Bin", trash}, {"Work/Sent", sent}}));
    EXPECT_EQ(rolesOf({mailbox("INBOX/Trash"), mailbox("Work/Trash"), mailbox("INBOX/Old/Junk"), mailbox("Sent"),
                       mailbox("Sent Items")}),
              (Roles{{"INBOX/Trash", trash}, {"INBOX/Old/Junk", junk}, {"Sent", sent}, {"Sent Items", sent}}));
}

TEST(MailboxRole, ComesFromAttributesBeforeNames) {
    const struct {
        const char* path;
        std::set<std::string> attributes;
        MailboxRole role;
    } cases[] = {{"inbox", {"\\Trash"}, MailboxRole::inbox},
                 {"Papierkorb", {"\\HasNoChildren", "\\TRASH"}, MailboxRole::trash},
                 {"All", {"\\Flagged", "\\All"}, MailboxRole::all},
                 {"Archive/2021/Sent", {}, MailboxRole::sent},
                 {"INBOX.Junk E-mail", {}, MailboxRole::junk},
                 {"Sent/2021", {}, MailboxRole::other},
                 {"Velmo/Snoozed", {}, MailboxRole::snoozed}};
    for (const auto& [path, attributes, role] : cases) EXPECT_EQ(mailboxRole(path, attributes), role) << path;
    EXPECT_EQ(mailboxRoleFrom(rawText(MailboxRole::snoozed)), MailboxRole::snoozed);
    EXPECT_EQ(mailboxDisplayName("INBOX", "/", MailboxRole::inbox), "Inbox");
    EXPECT_EQ(mailboxDisplayName("a/b.c", "/", MailboxRole::other), "b.c");
    EXPECT_EQ(mailboxDisplayName("a/b", {}, MailboxRole::other), "a/b");
}

}}
