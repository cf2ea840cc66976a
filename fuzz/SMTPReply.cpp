#include "protocols/SMTPReply.h"

#include "base/Text.h"

#include <cstdint>
#include <cstdlib>

namespace {

using namespace velmo;

void require(bool condition) {
    if (!condition) std::abort();
}

}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using Progress = SMTPReplyReader::Progress;
    BytesView rest(reinterpret_cast<const char*>(data), size);
    SMTPReplyReader reader;
    while (!rest.empty()) {
        const std::size_t end = rest.find("\r\n");
        const auto progress = reader.take(rest.substr(0, end));
        require(reader.room() <= SMTPReplyReader::mostBytes);
        require(reader.reply().lines.size() <= SMTPReplyReader::mostLines);
        if (progress != Progress::broken) {
            require(reader.reply().code >= 0 && reader.reply().code <= 999);
            require(text::isValidUTF8(reader.reply().text()));
        }
        if (progress != Progress::more) reader = {};
        if (end == BytesView::npos) break;
        rest.remove_prefix(end + 2);
    }
    return 0;
}
