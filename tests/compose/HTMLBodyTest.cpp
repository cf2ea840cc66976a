#include "compose/HTMLBody.h"

#include <gtest/gtest.h>

namespace velmo { namespace {

constexpr std::string_view opening =
    "<html><body style=\"font-family:-apple-system,Helvetica,Arial,sans-serif;font-size:14px\">";

/// The HTML of the body without what is around all bodies.
std::string inner(const HTMLWithPictures& body) {
    constexpr std::string_view closing = "</body></html>";
    EXPECT_TRUE(body.html.starts_with(opening) && body.html.ends_with(closing)) << body.html;
    return body.html.substr(opening.size(), body.html.size() - opening.size() - closing.size());
}

TEST(HTMLBody, showsTextSignatureAndQuote) {
    struct Case {
        std::string_view body, html;
    };
    const Case cases[] = {
        {"", ""},
        {"Hi  <you>\r\n\nx", "<div>Hi \u00A0&lt;you&gt;</div><div><br></div><div>x</div>"},
        {"Hi\n\n-- \nAna\n\nBen wrote:\n> x\n",
         "<div>Hi</div><div><br></div><div class=\"velmo-signature\"><div>-- </div><div>Ana</div></div>"
         "<div><br></div><div>Ben wrote:</div><blockquote><div>x</div></blockquote><div><br></div>"},
        {"\xFF", "<div>\uFFFD</div>"},
    };
    for (const auto& c : cases) EXPECT_EQ(inner(htmlBody(c.body, "", {})), c.html);
}

TEST(HTMLBody, putsTheStyledSignatureInThePlaceOfThePlainOne) {
    SignaturePiece name{.text = "Ana", .isBold = true};
    SignaturePiece logo;
    logo.picture = "x";
    const std::string styled = "<div class=\"velmo-signature\"><span style=\"font-weight:bold\">Ana</span>"
                               "<img src=\"cid:signature-0@velmo\"></div>";
    struct Case {
        const char* what;
        std::string body;
        std::string html;
    };
    const std::string forwarded = "---------- Forwarded message ----------\n\n-- \nAna";
    const std::string forwardedHTML = "<div>---------- Forwarded message ----------</div><div><br></div>"
                                      "<div>-- </div><div>Ana</div>";
    const Case cases[] = {
        {"in place", "Hi\n-- \nAna\n> x", "<div>Hi</div>" + styled + "<blockquote><div>x</div></blockquote>"},
        {"what was written below it stays", "-- \nAna\nPS", styled + "<div>PS</div>"},
        {"not an earlier mark", "a\n--\nb\n--\nAna", "<div>a</div><div>--</div><div>b</div>" + styled},
        {"a forwarded message stays", "Hi\n-- \nAna\n" + forwarded, "<div>Hi</div>" + styled + forwardedHTML},
        {"the one of a forwarded message stays", forwarded, forwardedHTML},
        {"edited: goes out as it is", "-- \nAnna",
         "<div class=\"velmo-signature\"><div>-- </div><div>Anna</div></div>"},
        {"deleted: does not go out", "Hi", "<div>Hi</div>"},
    };
    for (const auto& c : cases) {
        const auto body = htmlBody(c.body, "Ana", {name, logo});
        EXPECT_EQ(inner(body), c.html) << c.what;
        EXPECT_EQ(body.pictures.size(), c.html.contains("cid:") ? 1U : 0U) << c.what;
    }

    const auto pictureOnly = htmlBody("Hi\n--\n\nBen wrote:\n> x", "\uFFFC", {logo});
    EXPECT_EQ(inner(pictureOnly), "<div>Hi</div><div>--</div><div><br></div>"
                                  "<div class=\"velmo-signature\"><img src=\"cid:signature-0@velmo\"></div>"
                                  "<div>Ben wrote:</div><blockquote><div>x</div></blockquote>");
    EXPECT_EQ(pictureOnly.pictures.size(), 1U);
}

}}
