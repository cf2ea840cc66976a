#include "store/MailView.h"

#include "platform/SQLite.h"

#include <algorithm>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <set>

namespace velmo::test {

namespace {

constexpr const char* mailboxLine = "{} numbered {}: {} messages, {} unread\n";

std::string messageLine(const std::string& path, std::int64_t uid, const std::optional<std::string>& messageID,
                        const MessageFlags& flags) {
    return fmt::format("{}/{} {}{}{}{}{} {}\n", path, uid, messageID.value_or("-"), flags.isSeen ? " seen" : "",
                       flags.isFlagged ? " flagged" : "", flags.isAnswered ? " answered" : "",
                       flags.isDraft ? " draft" : "", fmt::join(flags.otherFlags, " "));
}

Async<std::vector<std::string>> pathsOnServer(IMAPClient& client) {
    std::set<std::string> paths;
    const auto mailboxes = co_await client.listMailboxes();
    for (const auto& mailbox : mailboxes) {
        const auto& attributes = mailbox.attributes;
        if (!attributes.contains("\\Noselect") && !attributes.contains("\\NonExistent")) paths.insert(mailbox.path);
    }
    co_return std::vector(paths.begin(), paths.end());
}

Async<std::vector<IMAPFetchResult>> messagesOnServer(IMAPClient& client, std::string path, std::string items) {
    std::vector<IMAPFetchResult> all;
    const auto state = co_await client.select(path);
    if (state.exists > 0) all = co_await client.uidFetch(path, "1:*", items);
    std::erase_if(all, [](const auto& one) { return !one.uid; });
    std::ranges::sort(all, {}, [](const auto& one) { return *one.uid; });
    co_return all;
}

}

std::shared_ptr<IMAPClient> anotherClient(Runtime& runtime, Clock& clock, const StoreHome& home) {
    return std::make_shared<IMAPClient>(makeStrand(runtime.executors().io), clock, home.account.incoming,
                                        MailCredential::password(home.account.username, home.password));
}

Async<std::string> mailOnServer(std::shared_ptr<IMAPClient> client) {
    std::string text;
    const auto paths = co_await pathsOnServer(*client);
    for (const auto& path : paths) {
        std::string lines;
        int unread = 0;
        const auto messages = co_await messagesOnServer(*client, path, "UID FLAGS ENVELOPE");
        for (const auto& message : messages) {
            const auto flags = MessageFlags::from(*message.flags);
            if (!flags.isSeen) ++unread;
            lines += messageLine(path, *message.uid, message.envelope->messageID, flags);
        }
        text += fmt::format(mailboxLine, path, client->selectedState()->uidValidity, messages.size(), unread) + lines;
    }
    co_return text;
}

std::string mailInStore(OpenStore& store) {
    std::string text;
    for (const auto& mailbox : store.mail().context().mailboxes.of(store.account.id)) {
        if (!mailbox.isSelectable) continue;
        text += fmt::format(mailboxLine, mailbox.path, mailbox.uidValidity, mailbox.totalCount, mailbox.unreadCount);
        auto records = store.held(mailbox.path);
        std::ranges::sort(records, {}, &MessageRecord::uid);
        for (const auto& record : records) {
            text += messageLine(mailbox.path, record.uid, record.messageID, record.flags());
            if (record.uidValidity != mailbox.uidValidity) text += "  of another numbering\n";
        }
    }
    return text;
}

Async<Sources> sourcesOnServer(std::shared_ptr<IMAPClient> client) {
    Sources sources;
    const auto paths = co_await pathsOnServer(*client);
    for (const auto& path : paths) {
        auto messages = co_await messagesOnServer(*client, path, "UID BODY.PEEK[]");
        for (auto& message : messages) sources[{path, *message.uid}] = std::move(message.sections.at(""));
    }
    co_return sources;
}

std::string bodiesInStore(OpenStore& store, const StoreHome& home) {
    std::string text;
    for (const auto& mailbox : store.mail().context().mailboxes.of(store.account.id)) {
        auto records = store.held(mailbox.path);
        std::ranges::sort(records, {}, &MessageRecord::uid);
        for (const auto& record : records) {
            text += fmt::format("{}/{}: {}, {} bytes, {}\n", mailbox.path, record.uid, record.hasBody ? "held" : "-",
                                store.files().bodyFileSize(BodyKey::of(record)), record.snippet);
        }
    }
    sqlite::Database index(home.bodyIndex());
    auto row =
        index.query("SELECT message_id, length(body) FROM docs JOIN bodies ON bodies.rowid = docs.id ORDER BY 1");
    while (row.step()) text += fmt::format("{}: {} letters\n", row.column<std::string>(0), row.column<std::int64_t>(1));
    return text;
}

std::string damageIn(OpenStore& store, const StoreHome& home, const Sources& sources) {
    std::string damage;
    sqlite::Database index(home.bodyIndex());
    if (index.integrityCheck() != "ok") damage += "the index is damaged\n";
    if (sqlite::Database(home.store() / "Mail.sqlite").integrityCheck() != "ok") damage += "the store is damaged\n";
    {
        auto row = index.query("SELECT message_id FROM docs LEFT JOIN bodies ON bodies.rowid = docs.id "
                               "WHERE ifnull(length(body), 0) = 0");
        while (row.step()) damage += row.column<std::string>(0) + " is in the index without a text\n";
    }
    const auto indexed = store.mail().bodyIndex().allMessageIDs();
    for (const auto& mailbox : store.mail().context().mailboxes.of(store.account.id)) {
        for (const auto& record : store.held(mailbox.path)) {
            const auto name = fmt::format("{}/{}", record.mailboxPath, record.uid);
            const auto body = store.files().loadBody(BodyKey::of(record));
            const auto source = sources.find({record.mailboxPath, static_cast<std::uint32_t>(record.uid)});
            if (body && source != sources.end() && *body != source->second) damage += name + " is not what was sent\n";
            if (record.hasBody && !body) damage += name + " has no file\n";
            if (record.hasBody && record.messageID && !indexed.contains(*record.messageID))
                damage += name + " is not in the index\n";
        }
    }
    return damage;
}

}
