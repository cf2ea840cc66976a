#include "protocols/MailboxNames.h"

#include <gtest/gtest.h>
#include <utility>

namespace velmo { namespace {

TEST(MailboxNames, AreShownAsPeopleWriteThem) {
    const std::pair<const char*, const char*> cases[]{
        {"Entw&APw-rfe", "Entwürfe"},
        {"~peter/mail/&U,BTFw-/&ZeVnLIqe-", "~peter/mail/台北/日本語"},
        {"R&-D", "R&D"},
        {"&2D3eAA-", "😀"},
        {"Entwürfe & mehr-", "Entwürfe & mehr-"},
        {"R&D", "R&D"},
        {"&AAA-x", "&AAA-x"},
        {"&2D0-", "&2D0-"},
        {"&A-", "&A-"},
        {"a&!!-", "a&!!-"},
    };
    for (const auto& [wire, shown] : cases) EXPECT_EQ(decodedMailboxName(wire), shown);
}

}}
