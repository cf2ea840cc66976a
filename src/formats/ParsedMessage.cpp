#include "formats/ParsedMessage.h"

#include "formats/MessageScanner.h"

#include <memory>
#include <vector>

namespace velmo {

namespace {

/// How deep messages may lie in transfer encodings of each other. The standard allows no such encoding of a message
/// (RFC 2046 §5.2.1), and each level holds its own copy of the bytes.
constexpr std::size_t deepestEncoding = 8;

/// A message, or one that came out of a transfer encoding, with its bytes.
struct Walk {
    Bytes bytes;
    MessageScanner scanner;

    Walk(Bytes decoded, MessageAssembler& assembler, MessageScanner::EncodedMessages encodedMessages)
        : bytes(std::move(decoded)), scanner(bytes, assembler, nullptr, encodedMessages) {}
};

}

ParsedMessage ParsedMessage::parse(BytesView data) {
    using EncodedMessages = MessageScanner::EncodedMessages;
    ParsedMessage message;
    MessageAssembler assembler(message);
    MessageScanner outermost(data, assembler, &message.headers, EncodedMessages::given);
    std::vector<std::unique_ptr<Walk>> inner;
    for (;;) {
        auto& scanner = inner.empty() ? outermost : inner.back()->scanner;
        if (auto embedded = scanner.next()) {
            const auto further =
                inner.size() + 1 < deepestEncoding ? EncodedMessages::given : EncodedMessages::attached;
            inner.push_back(std::make_unique<Walk>(*std::move(embedded), assembler, further));
        } else if (inner.empty()) {
            return message;
        } else {
            inner.pop_back();
        }
    }
}

}
