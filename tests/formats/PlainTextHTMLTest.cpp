#include "formats/PlainTextHTML.h"
#include "base/Text.h"
#include "formats/Invisibles.h"
#include "formats/Links.h"
#include "support/Hostile.h"

#include <gtest/gtest.h>

namespace velmo { namespace {

using test::processorSeconds;
using test::repeated;

std::string htmlOf(std::string_view text) {
    return plainToHTML(text::split(text, '\n'));
}

std::size_t countOf(std::string_view text, std::string_view part) {
    std::size_t count = 0;
    for (auto at = text.find(part); at != std::string_view::npos; at = text.find(part, at + part.size())) ++count;
    return count;
}

TEST(PlainTextHTML, writesLinesQuotesAndLinks) {
    struct Case {
        std::string_view text, html;
    };
    const Case cases[] = {
        {"a < b & c > \"d\"\n\n \t", "<div>a &lt; b &amp; c &gt; \"d\"</div><div><br></div><div><br></div>"},
        {"> one\n>> two\n> > three\nout", "<blockquote><div>one</div><blockquote><div>two</div><div>three</div>"
                                          "</blockquote></blockquote><div>out</div>"},
        {">>> deep\n>\n>  x", "<blockquote><blockquote><blockquote><div>deep</div></blockquote></blockquote>"
                              "<div><br></div><div> x</div></blockquote>"},
        {" > no quote", "<div> &gt; no quote</div>"},
        {"see https://a.example/?b=1&c=\"2\".",
         "<div>see <a href=\"https://a.example/?b=1&amp;c=\">https://a.example/?b=1&amp;c=</a>\"2\".</div>"},
        {"<www.a.example>", "<div>&lt;<a href=\"http://www.a.example\">www.a.example</a>&gt;</div>"},
    };
    for (const auto& c : cases) EXPECT_EQ(htmlOf(c.text), c.html);
    EXPECT_EQ(plainToHTML({}), "");
}

TEST(PlainTextHTML, boundsTheDepthAndTheTimeOfQuotes) {
    const std::string deep = htmlOf(repeated(">", 100'000) + "x\n" + repeated("> ", 100'000));
    EXPECT_EQ(countOf(deep, "<blockquote>"), deepestQuote);
    EXPECT_EQ(countOf(deep, "</blockquote>"), deepestQuote);

    for (const std::string_view part :
         {">\n\n", "http://", "www.", "a@b.c", "(", ")", "a@", "mailto:a@b.c)", "-- \n"}) {
        const std::string text = repeated(part, 200'000 / part.size());
        EXPECT_LT(processorSeconds([&] { htmlOf(text); }), 5) << part;
    }
}

TEST(Links, areFoundWithoutWhatSurroundsThem) {
    struct Case {
        std::string_view text, urls;
    };
    const Case cases[] = {
        {"http://a.example/x, (https://b.example/(y)) and HTTPS://C.example!",
         "http://a.example/x https://b.example/(y) HTTPS://C.example"},
        {"Write to ana.m+x@example.org; ben@example.net.", "mailto:ana.m+x@example.org mailto:ben@example.net"},
        {"mailto:ana@example.org?subject=x *ben@example.net*",
         "mailto:ana@example.org?subject=x mailto:ben@example.net"},
        {"“https://a.example/ü”。请看http://b.example", "https://a.example/ü http://b.example"},
        {"http:// https://... www. www.x mailto:x a@b @b.c a@b@c.d shttp://a.example javascript:alert(1)", ""},
        {"no link: at all", ""},
    };
    for (const auto& c : cases) {
        std::string urls;
        for (const auto& link : findLinks(c.text)) {
            EXPECT_TRUE(link.url.ends_with(c.text.substr(link.position, link.length)));
            urls += (urls.empty() ? "" : " ") + link.url;
        }
        EXPECT_EQ(urls, c.urls) << c.text;
    }
}

TEST(Invisibles, goUnlessTheyShapeWhatIsSeen) {
    EXPECT_EQ(withoutInvisibles("\uFEFFa\u200Bb\u00ADc\u200C\u200D \u034F\u200Ed\u202E"), "abc d");
    EXPECT_EQ(withoutInvisibles("\u200C \u034F\u200C \u200C"), "  ");
    for (const std::string_view kept :
         {"👩\u200D💻", "می\u200Cخواهم", "\U0001F3F4\U000E0067\U000E0062\U000E007F", "❤\uFE0F", "é\u0301"})
        EXPECT_EQ(withoutInvisibles(kept), kept);
}

}}
