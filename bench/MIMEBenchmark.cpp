#include "bench/MIMEBenchmark.h"

#include "bench/Process.h"
#include "bench/Timing.h"
#include "formats/HeaderWords.h"
#include "formats/ParsedMessage.h"
#include "support/TemporaryDirectory.h"

#include <algorithm>
#include <fstream>
#include <gmime/gmime.h>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>

namespace velmo::bench {

namespace {

constexpr int rounds = 7;
constexpr double bar = 3;
constexpr int corpusSize = 3000;

struct Unreferenced {
    void operator()(void* object) const { g_object_unref(object); }
};
template <class T>
using Referenced = std::unique_ptr<T, Unreferenced>;

struct ArrayFreed {
    void operator()(GByteArray* array) const { g_byte_array_unref(array); }
};

/// A message in the form that each side likes best.
struct Message {
    std::string bytes;
    std::unique_ptr<GByteArray, ArrayFreed> array;
};

std::vector<Message> readMessages(const std::filesystem::path& directory) {
    std::vector<Message> messages;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(directory)) {
        if (!entry.is_regular_file()) continue;
        std::ifstream file(entry.path(), std::ios::binary);
        Message message{std::string{std::istreambuf_iterator<char>(file), {}}, {}};
        message.array.reset(g_byte_array_sized_new(static_cast<guint>(message.bytes.size())));
        g_byte_array_append(message.array.get(), reinterpret_cast<const guint8*>(message.bytes.data()),
                            static_cast<guint>(message.bytes.size()));
        messages.push_back(std::move(message));
    }
    if (messages.empty()) throw std::runtime_error("no messages in " + directory.string());
    return messages;
}

/// Decoded bytes, so that neither side can leave work out.
std::size_t readOurWay(const Message& message) {
    const auto parsed = ParsedMessage::parse(message.bytes);
    std::size_t decoded = 0;
    for (const auto* text : {&parsed.plainText, &parsed.html}) decoded += *text ? (*text)->size() : 0;
    for (const auto& attachment : parsed.attachments) decoded += attachment.data.size();
    for (const char* name : {"Subject", "From"})
        decoded += decodeHeaderWords(parsed.headers.value(name).value_or("")).size();
    return decoded;
}

std::size_t decodedPart(GMimePart* part) {
    if (GMIME_IS_TEXT_PART(part)) {
        char* text = g_mime_text_part_get_text(GMIME_TEXT_PART(part));
        const std::size_t size = text != nullptr ? std::char_traits<char>::length(text) : 0;
        g_free(text);
        return size;
    }
    GMimeDataWrapper* content = g_mime_part_get_content(part);
    if (content == nullptr) return 0;
    const Referenced<GMimeStream> memory(g_mime_stream_mem_new());
    g_mime_data_wrapper_write_to_stream(content, memory.get());
    return g_mime_stream_mem_get_byte_array(GMIME_STREAM_MEM(memory.get()))->len;
}

void addDecodedPart(GMimeObject*, GMimeObject* part, gpointer total) {
    if (GMIME_IS_PART(part)) *static_cast<std::size_t*>(total) += decodedPart(GMIME_PART(part));
    // The walk does not enter embedded messages on its own.
    if (!GMIME_IS_MESSAGE_PART(part)) return;
    GMimeMessage* embedded = g_mime_message_part_get_message(GMIME_MESSAGE_PART(part));
    if (embedded != nullptr) g_mime_message_foreach(embedded, addDecodedPart, total);
}

std::size_t readPeersWay(const Message& message) {
    const Referenced<GMimeStream> stream(g_mime_stream_mem_new_with_byte_array(message.array.get()));
    g_mime_stream_mem_set_owner(GMIME_STREAM_MEM(stream.get()), FALSE);
    const Referenced<GMimeParser> parser(g_mime_parser_new_with_stream(stream.get()));
    const Referenced<GMimeMessage> parsed(g_mime_parser_construct_message(parser.get(), nullptr));
    if (!parsed) return 0;
    std::size_t decoded = 0;
    g_mime_message_foreach(parsed.get(), addDecodedPart, &decoded);
    if (const char* subject = g_mime_message_get_subject(parsed.get()))
        decoded += std::char_traits<char>::length(subject);
    if (InternetAddressList* from = g_mime_message_get_from(parsed.get())) {
        char* text = internet_address_list_to_string(from, nullptr, FALSE);
        if (text != nullptr) decoded += std::char_traits<char>::length(text);
        g_free(text);
    }
    return decoded;
}

double secondsFor(const std::vector<Message>& messages, std::size_t (*read)(const Message&)) {
    std::size_t decoded = 0;
    const double seconds = secondsOf([&] {
        for (const auto& message : messages) decoded += read(message);
    });
    if (decoded == 0) throw std::runtime_error("the messages decode to nothing");
    return seconds;
}

}

std::vector<Row> benchMIME() {
    const test::TemporaryDirectory corpus;
    runProgram({test::testFile("servers/fill").string(), corpus.path().string(), std::to_string(corpusSize)});
    g_mime_init();
    const auto messages = readMessages(corpus.path());
    double megabytes = 0;
    for (const auto& message : messages) megabytes += static_cast<double>(message.bytes.size()) / 1e6;
    double ours = 0, peer = 0;
    for (int round = 0; round < rounds; ++round) {
        ours = std::max(ours, megabytes / secondsFor(messages, readOurWay));
        peer = std::max(peer, megabytes / secondsFor(messages, readPeersWay));
    }
    return {
        Row{"parse messages and decode all of them, against GMime 3", ours, peer, "MB/s", bar, Row::Better::higher}};
}

}
