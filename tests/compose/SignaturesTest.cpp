#include "compose/Signatures.h"

#include <gtest/gtest.h>
#include <limits>

namespace velmo { namespace {

const UUID account = *UUID::parse("e621e1f8-c36c-495a-93fc-0c247a3e6e5f");
constexpr const char* textKey = "signature.E621E1F8-C36C-495A-93FC-0C247A3E6E5F";
constexpr const char* piecesKey = "signature.rich.E621E1F8-C36C-495A-93FC-0C247A3E6E5F";

SignaturePiece pictureOf(Bytes data, double width = 0, double height = 0) {
    SignaturePiece piece;
    piece.picture = std::move(data);
    piece.width = width;
    piece.height = height;
    return piece;
}

TEST(Signatures, keepBothForms) {
    MemorySettings settings;
    Signatures signatures(settings);
    SignaturePiece styled{.text = "Ana", .isBold = true, .color = "#336699", .link = "https://a.example"};
    const std::vector<SignaturePiece> pieces{styled, pictureOf(Bytes("\x89PNG\0\xFF", 6), 12.5, 9)};
    signatures.save("\uFFFC Ana\n\uFFFC\n", pieces, account);
    EXPECT_EQ(settings.text(textKey), "Ana");
    EXPECT_EQ(signatures.signature(account), "Ana");
    EXPECT_EQ(signatures.richSignature(account), pieces);
    EXPECT_FALSE(signatures.richSignature(UUID()));

    signatures.save("\uFFFC", {pictureOf("x")}, account);
    EXPECT_FALSE(signatures.signature(account));
    EXPECT_TRUE(signatures.richSignature(account));

    signatures.save(" \n", {SignaturePiece{}, pictureOf("")}, account);
    EXPECT_TRUE(settings.keys().empty());

    signatures.save("Ana", pieces, account);
    signatures.remove(account);
    EXPECT_TRUE(settings.keys().empty());

    settings.setText(textKey, " \uFFFC ");
    EXPECT_FALSE(signatures.signature(account));
}

TEST(Signatures, readPiecesWithMissingKeys) {
    EXPECT_EQ(signaturePiecesFromJSON(R"([{}, {"text": "a", "color": null, "width": 3}])"),
              (std::vector<SignaturePiece>{{}, {.text = "a", .width = 3}}));
    for (const char* broken : {"", "{}", "[1]", R"([{"text": 1}])", R"([{"isBold": "yes"}])", R"([{"width": "3"}])",
                               R"([{"picture": "no base64"}])", R"([{}, {"link": []}])"})
        EXPECT_FALSE(signaturePiecesFromJSON(broken)) << broken;
    // What is no UTF-8 or no number must not keep a signature from being stored.
    const SignaturePiece odd{.text = "\xFF", .width = std::numeric_limits<double>::quiet_NaN()};
    EXPECT_EQ(signaturePiecesFromJSON(signaturePiecesJSON({odd})), (std::vector<SignaturePiece>{{.text = "\uFFFD"}}));
}

TEST(Signatures, writeHTML) {
    struct Case {
        SignaturePiece piece;
        std::string_view html;
    };
    const Case cases[] = {
        {{.text = "<b>&\"\nx\r\n"}, "&lt;b&gt;&amp;\"<br>x<br>"},
        {{.text = "x", .isBold = true, .isItalic = true, .isUnderlined = true, .color = "rgb(1, 2%, 3.5)"},
         "<span style=\"font-weight:bold;font-style:italic;text-decoration:underline;color:rgb(1, 2%, 3.5)\">x</span>"},
        {{.text = "x", .color = "red\"><script>"}, "x"},
        {{.text = "x", .color = "red;background:url(x)"}, "x"},
        {{.text = "x", .isBold = true, .link = "https://a.example/?a=\"&b=<>"},
         "<a href=\"https://a.example/?a=&quot;&amp;b=&lt;&gt;\"><span style=\"font-weight:bold\">x</span></a>"},
        {pictureOf("x", 10.5, 1e300), "<img src=\"cid:signature-0@velmo\" width=\"11\" height=\"100000\">"},
        {pictureOf("x", -1, std::numeric_limits<double>::quiet_NaN()), "<img src=\"cid:signature-0@velmo\">"},
    };
    for (const auto& c : cases) EXPECT_EQ(Signatures::html({c.piece}).html, c.html);

    const auto two = Signatures::html({pictureOf("\xFF\xD8\xFFx"), SignaturePiece{.text = "x"}, pictureOf("y")});
    EXPECT_EQ(two.pictures, (std::vector<InlinePicture>{{"signature-0@velmo", "image/jpeg", "\xFF\xD8\xFFx"},
                                                        {"signature-1@velmo", "image/png", "y"}}));
    EXPECT_EQ(two.html, "<img src=\"cid:signature-0@velmo\">x<img src=\"cid:signature-1@velmo\">");
}

}}
