#include "protocols/SMTPReply.h"

#include "base/Text.h"

namespace velmo {

namespace {

constexpr std::size_t codeLength = 3;
constexpr std::size_t lineEndLength = 2;

}

std::string SMTPReply::text() const {
    std::string result;
    for (const std::string& line : lines) {
        if (!result.empty()) result += ' ';
        result += line;
    }
    return result;
}

SMTPReplyReader::Progress SMTPReplyReader::take(BytesView line) {
    const std::size_t size = line.size() + lineEndLength;
    const auto code = text::parseUnsigned32(line.substr(0, codeLength));
    if (line.size() < codeLength || !code || size > room() || reply_.lines.size() == mostLines) return Progress::broken;
    taken_ += size;
    reply_.code = static_cast<int>(*code);
    const bool hasText = line.size() > codeLength + 1;
    reply_.lines.push_back(hasText ? text::repairedUTF8(line.substr(codeLength + 1)) : std::string());
    const bool isLast = line.size() == codeLength || line[codeLength] == ' ';
    return isLast ? Progress::complete : Progress::more;
}

}
