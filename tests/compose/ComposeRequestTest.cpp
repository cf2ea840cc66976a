#include "compose/ComposeRequest.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace velmo { namespace {

const UUID id = *UUID::parse("e621e1f8-c36c-495a-93fc-0c247a3e6e5f");
const UUID account = *UUID::parse("00000000-0000-4000-8000-000000000001");

TEST(ComposeRequest, survivesItsStoredForm) {
    struct Case {
        ComposeRequest request;
        const char* key;
    };
    const Case cases[] = {
        {ComposeRequest::New{account, id}, "new"},
        {ComposeRequest::New{std::nullopt, id}, "new"},
        {ComposeRequest::Reply{std::numeric_limits<std::int64_t>::max(), true, "Yes,\n\"ü\"", id}, "reply"},
        {ComposeRequest::Reply{7, false, std::nullopt, id}, "reply"},
        {ComposeRequest::Forward{7, id}, "forward"},
        {ComposeRequest::FollowUp{7, id}, "followUp"},
        {ComposeRequest::EditDraft{7, id}, "editDraft"},
        {ComposeRequest::Mailto{"mailto:a@b.c?subject=x", account, id}, "mailto"},
        {ComposeRequest::Outbox{id}, "outbox"},
    };
    for (const auto& c : cases) {
        const Bytes stored = c.request.json();
        EXPECT_EQ(nlohmann::json::parse(stored).begin().key(), c.key);
        EXPECT_EQ(ComposeRequest::fromJSON(stored), c.request) << stored;
    }
}

TEST(ComposeRequest, refusesOtherForms) {
    using enum ComposeRequestError::Kind;
    struct Case {
        std::string stored;
        ComposeRequestError::Kind kind;
    };
    const std::string own = "\"id\": \"" + id.text() + "\"";
    const Case cases[] = {
        {"{}", numberOfKeys},
        {R"({"new": {)" + own + R"(}, "outbox": {}})", numberOfKeys},
        {R"({"burn": {)" + own + "}}", numberOfKeys},
        {"", malformed},
        {"[]", malformed},
        {R"({"new": 1})", malformed},
        {R"({"new": {}})", malformed},
        {R"({"new": {"from": "me", )" + own + "}}", malformed},
        {R"({"reply": {"message": 7, )" + own + "}}", malformed},
        {R"({"forward": {"message": "7", )" + own + "}}", malformed},
        {R"({"forward": {"message": 9223372036854775808, )" + own + "}}", malformed},
        {R"({"mailto": {)" + own + "}}", malformed},
    };
    for (const auto& c : cases) {
        try {
            ComposeRequest::fromJSON(c.stored);
            ADD_FAILURE() << c.stored;
        } catch (const ComposeRequestError& error) {
            EXPECT_EQ(error.kind(), c.kind) << c.stored;
        }
    }
    EXPECT_STREQ(ComposeRequestError(numberOfKeys).what(), "Invalid number of keys found, expected one.");
}

}}
