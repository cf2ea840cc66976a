#include "protocols/IMAPFetchResult.h"

#include "base/Text.h"

#include <array>

namespace velmo {

namespace {

/// "+0130" as minutes east of UTC.
std::optional<std::chrono::minutes> readOffset(std::string_view zone) {
    if (zone == "GMT" || zone == "UTC") return std::chrono::minutes{0};
    if (zone.size() != 5 || (zone[0] != '+' && zone[0] != '-')) return std::nullopt;
    const auto digits = text::parseUnsigned32(zone.substr(1));
    if (!digits) return std::nullopt;
    const std::chrono::minutes offset{*digits / 100 * 60 + *digits % 100};
    return zone[0] == '-' ? -offset : offset;
}

std::optional<int> readNumber(std::string_view digits) {
    const auto number = text::parseUnsigned32(digits);
    if (!number || *number > 9999) return std::nullopt;
    return static_cast<int>(*number);
}

/// "17-Jul-1996 02:44:25 -0700" (RFC 3501 §9, date-time), with blanks before a single-digit day.
std::optional<Date> readInternalDate(std::string_view text) {
    const std::vector<std::string_view> words = text::split(text::trimmed(text), ' ');
    if (words.size() != 3) return std::nullopt;
    const std::vector<std::string_view> date = text::split(words[0], '-');
    const std::vector<std::string_view> time = text::split(words[1], ':');
    const auto offset = readOffset(words[2]);
    if (date.size() != 3 || time.size() != 3 || !offset) return std::nullopt;
    const std::array numbers{readNumber(date[2]), monthNumber(date[1]), readNumber(date[0]),
                             readNumber(time[0]), readNumber(time[1]),  readNumber(time[2])};
    for (const auto& number : numbers) {
        if (!number) return std::nullopt;
    }
    CivilTime civil;
    civil.year = *numbers[0];
    civil.month = *numbers[1];
    civil.day = *numbers[2];
    civil.hour = *numbers[3];
    civil.minute = *numbers[4];
    civil.second = *numbers[5];
    civil.offset = *offset;
    return dateFrom(civil);
}

std::set<std::string> readFlags(IMAPValue value) {
    std::set<std::string> flags;
    for (const IMAPValue flag : value.children()) {
        if (flag.isAtom()) flags.insert(*imapText(flag));
    }
    return flags;
}

void readModSeq(IMAPFetchResult& result, IMAPValue value) {
    const IMAPValues words = value.children();
    if (words.empty() || !(*words.begin()).isAtom()) return;
    if (const auto number = text::parseUnsigned64((*words.begin()).bytes())) result.modSeq = number;
}

using Reader = void (*)(IMAPFetchResult&, IMAPValue);

struct Item {
    std::string_view name;
    Reader read;
};

constexpr std::array<Item, 9> items{{
    {"UID",
     [](IMAPFetchResult& result, IMAPValue value) {
         if (const auto uid = text::parseUnsigned32(value.bytes())) result.uid = uid;
     }},
    {"FLAGS",
     [](IMAPFetchResult& result, IMAPValue value) {
         if (value.isList()) result.flags = readFlags(value);
     }},
    {"INTERNALDATE",
     [](IMAPFetchResult& result, IMAPValue value) { result.internalDate = readInternalDate(value.bytes()); }},
    {"RFC822.SIZE", [](IMAPFetchResult& result, IMAPValue value) { result.size = imapInteger(value); }},
    {"MODSEQ", readModSeq},
    {"ENVELOPE", [](IMAPFetchResult& result, IMAPValue value) { result.envelope = readEnvelope(value); }},
    {"BODYSTRUCTURE",
     [](IMAPFetchResult& result, IMAPValue value) { result.bodyStructure = readBodyStructure(value); }},
    {"BODY",
     [](IMAPFetchResult& result, IMAPValue value) {
         if (value.isList()) result.bodyStructure = readBodyStructure(value);
     }},
    {"X-GM-THRID",
     [](IMAPFetchResult& result, IMAPValue value) { result.gmailThreadID = text::parseUnsigned64(value.bytes()); }},
}};

void readSection(IMAPFetchResult& result, BytesView key, IMAPValue value) {
    if (value.kind() != IMAPValue::Kind::string) return;
    const std::size_t open = key.find('[');
    const std::size_t close = key.rfind(']');
    if (close == BytesView::npos || close < open) return;
    result.sections.insert_or_assign(text::repairedUTF8(key.substr(open + 1, close - open - 1)), Bytes(value.bytes()));
}

void readItem(IMAPFetchResult& result, IMAPValue key, IMAPValue value) {
    if (!key.isAtom()) return;
    const BytesView name = key.bytes();
    if (text::startsWithIgnoringCase(name, "BODY[") || text::startsWithIgnoringCase(name, "BINARY[")) {
        readSection(result, name, value);
        return;
    }
    for (const Item& item : items) {
        if (text::equalsIgnoringCase(name, item.name)) item.read(result, value);
    }
}

}

std::optional<IMAPFetchResult> IMAPFetchResult::read(IMAPValues words) {
    const std::vector<IMAPValue> head = words.taken(3);
    if (head.size() < 3 || !head[1].isAtom("FETCH")) return std::nullopt;
    const auto sequence = imapInteger(head[0]);
    if (!sequence || head[2].children().taken(2).size() < 2) return std::nullopt;
    IMAPFetchResult result;
    result.sequence = *sequence;
    const IMAPValues list = head[2].children();
    for (auto at = list.begin(); at != list.end(); ++at) {
        const IMAPValue key = *at;
        if (++at == list.end()) break;
        readItem(result, key, *at);
    }
    return result;
}

}
