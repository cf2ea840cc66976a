#include "compose/BodyLayout.h"
#include "base/Text.h"
#include "compose/Quotes.h"
#include "support/Hostile.h"

#include <gtest/gtest.h>

namespace velmo { namespace {

TEST(BodyLayout, joinsWhatIsThere) {
    EXPECT_EQ(composedBody("Hi", " Ana\nParis\n", "> x"), "Hi\n\n-- \nAna\nParis\n\n> x");
    EXPECT_EQ(composedBody("", "Ana", ""), "-- \nAna");
    EXPECT_EQ(composedBody("Hi", " \n", "> x"), "Hi\n\n> x");
    EXPECT_EQ(composedBody("", "", ""), "");
}

TEST(BodyLayout, replacesTheSignatureOfTheOtherAccount) {
    const std::string forwarded = forwardLine() + "\nFrom: x\n\nold text\n\n-- \nAna";
    struct Case {
        const char* what;
        std::string body, oldSignature, newSignature, quote, expected;
    };
    const Case cases[] = {
        {"in its place", "Hi\n\n-- \nAna\n\nOn Monday, Ben wrote:\n> x", "Ana", "A. M.\nParis",
         "On Monday, Ben wrote:\n> x", "Hi\n\n-- \nA. M.\nParis\n\nOn Monday, Ben wrote:\n> x"},
        {"whatever follows it", "-- \nAna\nPS: later", "Ana", "Bo", "", "-- \nBo\nPS: later"},
        {"only as a whole line", "-- \nAnabel", "Ana", "Bo", "", "-- \nAnabel\n\n-- \nBo"},
        {"edited: the new one is added", "Hi\n\n-- \nAnna\n\n> x", "Ana", "Bo", "> x",
         "Hi\n\n-- \nAnna\n\n-- \nBo\n\n> x"},
        {"held already", "Hi\n\n-- \nBo\n\n> x", "Ana", "Bo", "> x", "Hi\n\n-- \nBo\n\n> x"},
        {"none before", "Hi\n\n> x", "", "Bo", "> x", "Hi\n\n-- \nBo\n\n> x"},
        {"none before, no text", "> x", "", "Bo", "> x", "-- \nBo\n\n> x"},
        {"quote edited", "Hi\n\nOn Monday, Ben wrote:\n> y", "", "Bo", "On Monday, Ben wrote:\n> x",
         "Hi\n\n-- \nBo\n\nOn Monday, Ben wrote:\n> y"},
        {"own quoting above the quote", "> mine\nHi\n\nBen wrote:\n> x", "", "Bo", "Ben wrote:\n> x",
         "> mine\nHi\n\n-- \nBo\n\nBen wrote:\n> x"},
        {"none after", "Hi\n\n-- \nAna\n\n> x", "Ana", "", "> x", "Hi\n\n> x"},
        {"none after, at the end", "Hi\n\n-- \nAna", "Ana", "", "", "Hi"},
        {"none after, alone", "-- \nAna", "Ana", "", "", ""},
        {"forwarded ones stay", "Hi\n\n" + forwarded, "Ana", "Bo", forwarded, "Hi\n\n-- \nBo\n\n" + forwarded},
    };
    for (const auto& c : cases)
        EXPECT_EQ(replacedSignature(c.body, c.oldSignature, c.newSignature, c.quote), c.expected) << c.what;
}

TEST(BodyLayout, findsWhatLooksLikeASignature) {
    struct Case {
        std::string_view body;
        LineRange range;
    };
    const Case cases[] = {
        {"Hi", {}},
        {"Hi\n-- \nAna", {1, 3}},
        {"--\nAna\n\nBen wrote:\n> x", {0, 2}},
        {"Hi\n-- \n> x", {1, 2}},
        {"> x\n-- \nAna\n> y\n", {1, 3}},
        {" -- \n--- \n> -- ", {}},
        {"---------- Forwarded message ----------\n\n-- \nBen", {}},
        {"-- \nAna\n---------- Forwarded message ----------\n> x", {0, 2}},
    };
    for (const auto& c : cases) EXPECT_EQ(markedSignature(text::split(c.body, '\n')), c.range) << c.body;
}

TEST(BodyLayout, isLinearInTheBody) {
    for (const std::string_view part : {"-- \n", "\n", "> x\n", "x:\n", "Ben wrote:\n> x\n"}) {
        const std::string body = test::repeated(part, 200'000 / part.size());
        EXPECT_LT(test::processorSeconds([&] { replacedSignature(body, "Ana", "Bo", body); }), 5) << part;
    }
    // A signature that all but stands in the body again and again.
    const std::string marks = test::repeated("-- \n", 20'000);
    EXPECT_LT(test::processorSeconds([&] { replacedSignature(marks + marks, marks + "Ana", "Bo", ""); }), 5);
    EXPECT_EQ(replacedSignature("--\n-- \n--\nAna\nrest", "--\nAna", "Bo", ""), "--\n-- \nBo\nrest");
}

}}
