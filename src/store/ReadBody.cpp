#include "store/ReadBody.h"

#include "base/Text.h"
#include "formats/HTMLText.h"
#include "formats/Preview.h"

namespace velmo {

namespace {

constexpr std::size_t indexedCharacters = 200'000;

std::string indexText(const ParsedMessage& message) {
    std::string text;
    if (message.plainText)
        text = *message.plainText;
    else if (message.html)
        text = htmlToPlainText(*message.html);
    text.resize(text::firstCodePoints(text, indexedCharacters).size());
    return text;
}

}

ReadBody readBody(BytesView source) {
    ReadBody body;
    MessageCache::Entry entry{ParsedMessage::parse(source)};
    body.indexText = indexText(entry.content);
    body.snippet = snippet(entry.content.plainText, entry.content.html);
    body.entry = std::make_shared<const MessageCache::Entry>(std::move(entry));
    return body;
}

}
