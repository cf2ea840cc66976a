#include "store/SampleMail.h"

#include "base/Text.h"
#include "formats/MIMEHeaders.h"
#include "formats/MailDate.h"
#include "store/SampleMailDates.h"
#include "store/SampleMailFiles.h"
#include "store/SampleMailReader.h"
#include "sync/SyncWriter.h"

#include <algorithm>
#include <array>
#include <utility>

namespace velmo {

namespace {

struct Mailbox {
    std::string_view path;
    std::string_view attribute;
};

constexpr std::string_view inbox = "INBOX";
constexpr std::string_view sent = "Sent";
constexpr std::string_view drafts = "Drafts";
constexpr std::string_view archive = "Archive";
constexpr std::string_view junk = "Junk";
constexpr std::string_view trash = "Trash";

constexpr std::array<Mailbox, 6> mailboxes{{{inbox, ""},
                                            {sent, "\\Sent"},
                                            {drafts, "\\Drafts"},
                                            {archive, "\\Archive"},
                                            {junk, "\\Junk"},
                                            {trash, "\\Trash"}}};

struct Sample {
    std::string_view mailbox;
    std::string_view file; ///< without ".eml"
    std::string_view flags;
};

// The oldest of each mailbox first; a message's UID is its place there, from 1.
constexpr std::array<Sample, 38> samples{{{inbox, "recipe-euckr", "\\Seen"},
                                          {inbox, "dacha-koi8r", "\\Seen"},
                                          {inbox, "payment-choir", "\\Seen"},
                                          {inbox, "tea-gb18030", "\\Seen"},
                                          {inbox, "concert-iso2022jp", "\\Seen \\Flagged"},
                                          {inbox, "shelves-1", "\\Seen \\Answered"},
                                          {inbox, "newsletter-bread", "\\Seen"},
                                          {inbox, "allotment-1", "\\Seen"},
                                          {inbox, "allotment-2", ""},
                                          {inbox, "harvest-table", "\\Seen"},
                                          {inbox, "travel-plan-latin1", "\\Seen $Forwarded"},
                                          {inbox, "hut-1", "\\Seen"},
                                          {inbox, "hut-2", "\\Seen \\Answered"},
                                          {inbox, "books-arabic", "\\Seen"},
                                          {inbox, "dentist-appointment", "\\Seen \\Flagged"},
                                          {inbox, "social-sketching", "\\Seen"},
                                          {inbox, "receipt-coffee", "\\Seen"},
                                          {inbox, "choir-rehearsal", "\\Seen"},
                                          {inbox, "hut-4", "\\Seen"},
                                          {inbox, "lighthouse-picture", ""},
                                          {inbox, "shelves-3", "\\Seen"},
                                          {inbox, "update-backup", "\\Seen"},
                                          {inbox, "games-evening", ""},
                                          {inbox, "newsletter-tides", ""},
                                          {inbox, "promotion-lights", ""},
                                          {inbox, "security-code", "\\Seen"},
                                          {inbox, "security-sign-in", ""},
                                          {inbox, "update-parcel", ""},
                                          {inbox, "hut-5", ""},
                                          {inbox, "welcome", ""},
                                          {sent, "shelves-2", "\\Seen"},
                                          {sent, "present-idea", "\\Seen"},
                                          {sent, "hut-3", "\\Seen"},
                                          {drafts, "draft-choir", "\\Seen \\Draft"},
                                          {archive, "archive-bicycle", "\\Seen"},
                                          {archive, "archive-thank-you", "\\Seen"},
                                          {junk, "junk-prize", ""},
                                          {trash, "trash-umbrella", "\\Seen"}}};

constexpr std::chrono::minutes ageOfNewest{3};

BytesView sourceOf(std::string_view file) {
    for (const SampleMailFile& candidate : sampleMailFiles()) {
        if (candidate.name.substr(0, candidate.name.rfind('.')) == file) return candidate.source;
    }
    return {};
}

std::set<std::string> flagsOf(const Sample& sample) {
    std::set<std::string> flags;
    for (const std::string_view flag : text::split(sample.flags, ' ')) {
        if (!flag.empty()) flags.emplace(flag);
    }
    return flags;
}

/// The newest date in the files.
Date newestDate() {
    Date newest{};
    for (const SampleMailFile& file : sampleMailFiles()) {
        const BytesView head = file.source.substr(0, file.source.find("\r\n\r\n"));
        const MIMEHeaders headers = MIMEHeaders::parse(head);
        if (const auto date = parseDate(headers.value("Date").value_or(""))) newest = std::max(newest, *date);
    }
    return newest;
}

/// From the dates in the files to those that are shown; in whole minutes.
Duration shiftTo(Date now) {
    static const Date newest = newestDate();
    return std::chrono::floor<std::chrono::minutes>(now) - ageOfNewest - newest;
}

/// Counts the samples of each mailbox.
template <class Use>
void forEachSample(Use use) {
    std::uint32_t uid = 0;
    std::string_view path;
    for (const Sample& sample : samples) {
        uid = sample.mailbox == path ? uid + 1 : 1;
        path = sample.mailbox;
        use(sample, uid);
    }
}

/// The content of one mailbox, as a server gives it to someone who sees it for the first time.
MailboxDelta deltaOf(std::string_view path, const std::vector<SampleMessage>& messages) {
    MailboxDelta delta;
    for (const SampleMessage& message : messages) {
        if (message.mailboxPath != path) continue;
        delta.newMessages.push_back(syncedMessage(message.uid, message.flags, message.source));
    }
    delta.state.exists = static_cast<std::int64_t>(delta.newMessages.size());
    delta.state.uidValidity = 1;
    delta.state.uidNext = static_cast<std::uint32_t>(delta.newMessages.size()) + 1;
    return delta;
}

ListedMailbox listed(IMAPMailbox mailbox, const MailboxDelta& delta) {
    ListedMailbox entry;
    entry.mailbox = std::move(mailbox);
    entry.messages = delta.state.exists;
    entry.unseen = std::ranges::count_if(
        delta.newMessages, [](const SyncedMessage& message) { return !message.flags.contains("\\Seen"); });
    return entry;
}

}

std::vector<IMAPMailbox> sampleMailboxes() {
    std::vector<IMAPMailbox> result;
    for (const Mailbox& mailbox : mailboxes) {
        IMAPMailbox& entry = result.emplace_back();
        entry.path = mailbox.path;
        entry.delimiter = "/";
        if (!mailbox.attribute.empty()) entry.attributes.emplace(mailbox.attribute);
        entry.role = mailboxRole(entry.path, entry.attributes);
    }
    return result;
}

std::vector<SampleMessage> sampleMessages(Date now) {
    const Duration shift = shiftTo(now);
    std::vector<SampleMessage> messages;
    forEachSample([&](const Sample& sample, std::uint32_t uid) {
        SampleMessage& message = messages.emplace_back();
        message.mailboxPath = sample.mailbox;
        message.uid = uid;
        message.flags = flagsOf(sample);
        message.source = withMovedDates(sourceOf(sample.file), shift);
    });
    return messages;
}

std::optional<Bytes> sampleSource(std::string_view mailboxPath, std::uint32_t uid, Date now) {
    std::optional<Bytes> source;
    forEachSample([&](const Sample& sample, std::uint32_t number) {
        if (sample.mailbox != mailboxPath || number != uid) return;
        source = withMovedDates(sourceOf(sample.file), shiftTo(now));
    });
    return source;
}

Async<void> fillWithSamples(SyncWriter& writer, Date now) {
    const std::vector<SampleMessage> messages = sampleMessages(now);
    std::vector<ListedMailbox> listing;
    std::vector<std::pair<std::string, MailboxDelta>> deltas;
    for (IMAPMailbox& mailbox : sampleMailboxes()) {
        deltas.emplace_back(mailbox.path, deltaOf(mailbox.path, messages));
        listing.push_back(listed(std::move(mailbox), deltas.back().second));
    }
    co_await writer.upsertMailboxes(sampleAccountID, std::move(listing));
    for (auto& [path, delta] : deltas) {
        co_await writer.apply(std::move(delta), sampleAccountID, path, LabelNewMail::yes);
    }
}

}
