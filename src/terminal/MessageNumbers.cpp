#include "terminal/MessageNumbers.h"

#include "base/Localisation.h"
#include "base/Text.h"

#include <limits>

namespace velmo {

std::string messageNumberTrouble(const std::string& word) {
    constexpr auto most = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    const auto number = text::parseUnsigned64(word);
    const bool isPlain = !word.empty() && word.find_first_not_of("0123456789") == std::string::npos && word[0] != '0';
    if (isPlain && number && *number <= most) return {};
    return tr("“{}” is no number of a message. The lists begin their lines with it.", text::repairedUTF8(word));
}

}
