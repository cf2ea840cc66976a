#pragma once

#include <string>

namespace velmo {

/// The message that is being answered or passed on, for those who help to write the answer.
struct ReplyContext {
    std::string sender;     ///< "Jane <jane@example.org>", or the address alone
    std::string senderName; ///< the name, or the address where there is none
    std::string subject;
    std::string text; ///< its plain text
    bool isForward = false;
    bool isFollowUp = false;
    std::string senderEmail; ///< lower-case

    friend bool operator==(const ReplyContext&, const ReplyContext&) = default;
};

}
