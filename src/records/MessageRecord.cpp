#include "records/MessageRecord.h"

#include "base/Text.h"

#include <array>
#include <string_view>
#include <utility>

namespace velmo {

MessageFlags MessageFlags::from(const std::set<std::string>& flags) {
    struct Known {
        std::string_view flag;
        bool MessageFlags::*field;
    };
    static constexpr std::array known{
        Known{"\\Seen", &MessageFlags::isSeen}, Known{"\\Flagged", &MessageFlags::isFlagged},
        Known{"\\Answered", &MessageFlags::isAnswered}, Known{"\\Draft", &MessageFlags::isDraft}};
    MessageFlags result;
    for (const auto& flag : flags) {
        bool isOther = !text::equalsIgnoringCase(flag, "\\Recent");
        for (const auto& [name, field] : known) {
            if (!text::equalsIgnoringCase(flag, name)) continue;
            result.*field = true;
            isOther = false;
        }
        // The set is sorted already.
        if (isOther) result.otherFlags.push_back(flag);
    }
    return result;
}

void MessageRecord::setFlags(MessageFlags flags) {
    isSeen = flags.isSeen;
    isFlagged = flags.isFlagged;
    isAnswered = flags.isAnswered;
    isDraft = flags.isDraft;
    otherFlags = std::move(flags.otherFlags);
}

bool MessageRecord::applyFlags(const std::set<std::string>& received) {
    auto now = MessageFlags::from(received);
    if (now == flags()) return false;
    setFlags(std::move(now));
    return true;
}

}
