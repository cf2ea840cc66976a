#include "formats/MessageIDs.h"

#include "base/Text.h"

namespace velmo {

std::vector<std::string> parseMessageIDs(std::string_view text) {
    std::vector<std::string> ids;
    std::string current; // empty outside of brackets
    for (const char c : text) {
        if (c == '<') {
            current = c;
        } else if (!current.empty() && c == '>') {
            if (current.size() > 1) ids.push_back(current + c);
            current.clear();
        } else if (!current.empty() && !text::isSpace(c)) {
            current += c;
        }
    }
    return ids;
}

}
