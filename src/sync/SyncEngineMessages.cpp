// What is asked of single messages, and the wait for changes.

#include "sync/FetchedMessages.h"
#include "sync/SyncEngine.h"

#include <algorithm>
#include <fmt/format.h>
#include <utility>

namespace velmo {

namespace {

constexpr std::string_view wholeMessageItems = "UID BODY.PEEK[]";
constexpr Duration longestBlindWait{120'000};

/// Only what stands in one line of printable ASCII can be asked for, and is worth asking for.
bool isSearchableMessageID(std::string_view messageID) {
    return !messageID.empty() && messageID.size() <= 900 &&
           std::ranges::all_of(messageID, [](char c) { return c > ' ' && c <= '~'; });
}

/// Something happened to the mailbox since it was synced. What a server does not tell is no difference.
bool differs(const IMAPSelectedState& found, const IMAPSelectedState& held) {
    return found.exists != held.exists || found.uidValidity != held.uidValidity ||
           (found.uidNext != 0 && found.uidNext != held.uidNext) ||
           (found.highestModSeq && held.highestModSeq && found.highestModSeq != held.highestModSeq);
}

void refuseNewNumbers(const IMAPClient& client, std::int64_t uidValidity) {
    const auto& state = client.selectedState();
    if (state && state->uidValidity != 0 && uidValidity != 0 && state->uidValidity != uidValidity)
        throw IMAPError::unexpected("the messages have new numbers");
}

}

Async<std::vector<std::uint32_t>> SyncEngine::olderUIDs(std::string path, std::uint32_t oldestUID) {
    return runOn(strand_, [this, oldestUID, path = std::move(path)]() -> Async<std::vector<std::uint32_t>> {
        std::vector<std::uint32_t> uids;
        if (oldestUID < 2) co_return uids;
        const Client client = co_await connectedClient();
        uids = co_await search(client, path, fmt::format("UID 1:{}", oldestUID - 1));
        std::erase_if(uids, [oldestUID](std::uint32_t uid) { return uid >= oldestUID; });
        std::ranges::sort(uids);
        uids.erase(std::ranges::unique(uids).begin(), uids.end());
        co_return uids;
    });
}

Async<std::vector<SyncedMessage>> SyncEngine::fetchMessages(std::string path, std::int64_t uidValidity,
                                                            std::vector<std::uint32_t> uids) {
    return runOn(strand_,
                 [this, uidValidity, path = std::move(path),
                  uids = std::move(uids)]() mutable -> Async<std::vector<SyncedMessage>> {
                     if (uids.empty()) co_return std::vector<SyncedMessage>();
                     const Client client = co_await connectedClient();
                     auto heads = co_await fetchHeads(client, path, std::move(uids));
                     auto messages = std::move(heads.messages);
                     co_await addSnippets(client, path, messages);
                     refuseNewNumbers(*client, uidValidity);
                     co_return messages;
                 });
}

Async<std::vector<IMAPFetchResult>> SyncEngine::fetchWhole(const Client& client, const std::string& path,
                                                           std::int64_t uidValidity, std::string set) {
    std::vector<IMAPFetchResult> results;
    co_await client->locked([&]() -> Async<void> {
        results = co_await client->uidFetch(path, std::move(set), std::string(wholeMessageItems));
        refuseNewNumbers(*client, uidValidity);
    });
    co_return results;
}

Async<Bytes> SyncEngine::fetchRawMessage(std::string path, std::int64_t uidValidity, std::uint32_t uid) {
    return runOn(strand_, [this, uidValidity, uid, path = std::move(path)]() -> Async<Bytes> {
        const Client client = co_await connectedClient();
        auto results = co_await fetchWhole(client, path, uidValidity, std::to_string(uid));
        for (IMAPFetchResult& result : results) {
            const auto whole = result.sections.find("");
            if (result.uid == uid && whole != result.sections.end()) co_return std::move(whole->second);
        }
        throw IMAPError::unexpected(fmt::format("message {} is gone", uid));
    });
}

Async<std::map<std::uint32_t, Bytes>> SyncEngine::fetchRawMessages(std::string path, std::int64_t uidValidity,
                                                                   std::vector<std::uint32_t> uids) {
    return runOn(
        strand_,
        [this, uidValidity, path = std::move(path), uids = std::move(uids)]() -> Async<std::map<std::uint32_t, Bytes>> {
            std::map<std::uint32_t, Bytes> messages;
            if (uids.empty()) co_return messages;
            const Client client = co_await connectedClient();
            auto results = co_await fetchWhole(client, path, uidValidity, uidSet(uids));
            for (IMAPFetchResult& result : results) {
                const auto whole = result.sections.find("");
                if (result.uid && whole != result.sections.end())
                    messages.insert_or_assign(*result.uid, std::move(whole->second));
            }
            co_return messages;
        });
}

Async<std::vector<std::uint32_t>> SyncEngine::remoteSearch(std::string path, std::string query) {
    return runOn(strand_,
                 [this, path = std::move(path), query = std::move(query)]() -> Async<std::vector<std::uint32_t>> {
                     const Client client = co_await connectedClient();
                     std::string criteria = client->has("X-GM-EXT-1") ? "X-GM-RAW " : "TEXT ";
                     criteria += imapQuoted(query);
                     co_return co_await search(client, path, std::move(criteria));
                 });
}

/// A search for a header field finds every text that contains the words, and with none it finds everything (RFC 3501
/// §6.4.4); so the hits are read, and only those count that have just this identifier.
Async<std::vector<std::uint32_t>> SyncEngine::withMessageID(const Client& client, const std::string& path,
                                                            std::string messageID) {
    std::vector<std::uint32_t> found;
    if (!isSearchableMessageID(messageID)) co_return found;
    auto hits = co_await search(client, path, "HEADER Message-ID " + imapQuoted(messageID));
    if (hits.empty()) co_return found;
    std::ranges::sort(hits);
    const auto results = co_await uidFetch(client, path, uidSet(hits), "UID ENVELOPE");
    for (const IMAPFetchResult& result : results) {
        const bool isHit = result.uid && std::ranges::binary_search(hits, *result.uid);
        if (isHit && result.envelope && result.envelope->messageID == messageID) found.push_back(*result.uid);
    }
    co_return found;
}

Async<bool> SyncEngine::moveByMessageID(std::string path, std::string messageID, std::string destination,
                                        std::optional<std::vector<std::string>> clearFlags) {
    return runOn(strand_,
                 [this, path = std::move(path), messageID = std::move(messageID), destination = std::move(destination),
                  clearFlags = std::move(clearFlags)]() -> Async<bool> {
                     const Client client = co_await connectedClient();
                     const auto hits = co_await withMessageID(client, path, messageID);
                     if (hits.empty()) co_return false;
                     const std::string set = uidSet(hits);
                     if (clearFlags) {
                         co_await client->locked(
                             [&] { return client->store(path, set, IMAPClient::FlagChange::remove, *clearFlags); });
                     }
                     co_await client->locked([&] { return client->moveMessages(path, set, destination); });
                     co_return true;
                 });
}

Async<void> SyncEngine::replaceByMessageID(std::string path, std::string messageID, std::vector<std::string> flags,
                                           Bytes message) {
    return runOn(strand_,
                 [this, path = std::move(path), messageID = std::move(messageID), flags = std::move(flags),
                  message = std::move(message)]() mutable -> Async<void> {
                     const Client client = co_await connectedClient();
                     const auto older = co_await withMessageID(client, path, messageID);
                     co_await client->locked([&] { return client->append(path, flags, std::move(message)); });
                     if (older.empty()) co_return;
                     const std::string set = uidSet(older);
                     co_await client->locked([&] { return client->deleteMessages(path, set); });
                 });
}

Async<bool> SyncEngine::flagByMessageID(std::string path, std::string messageID, std::string flag) {
    return runOn(strand_,
                 [this, path = std::move(path), messageID = std::move(messageID),
                  flags = std::vector<std::string>(1, flag)]() -> Async<bool> {
                     const Client client = co_await connectedClient();
                     const auto hits = co_await withMessageID(client, path, messageID);
                     if (hits.empty()) co_return false;
                     co_await client->locked(
                         [&] { return client->store(path, uidSet(hits), IMAPClient::FlagChange::add, flags); });
                     co_return true;
                 });
}

Async<bool> SyncEngine::deleteByMessageID(std::string path, std::string messageID) {
    return runOn(strand_, [this, path = std::move(path), messageID = std::move(messageID)]() -> Async<bool> {
        const Client client = co_await connectedClient();
        const auto hits = co_await withMessageID(client, path, messageID);
        if (hits.empty()) co_return false;
        co_await client->locked([&] { return client->deleteMessages(path, uidSet(hits)); });
        co_return true;
    });
}

// --- Waiting -----------------------------------------------------------------------------------------------------

Async<SyncEngine::Client> SyncEngine::idleClient() {
    if (idleClient_) co_return idleClient_;
    const MailCredential credential = co_await credential_();
    auto client = std::make_shared<IMAPClient>(strand_, clock_, server_, credential);
    co_await client->locked([&client] { return client->connect(); });
    idleClient_ = client;
    co_return client;
}

Async<bool> SyncEngine::waitForChanges(std::string path, IMAPSelectedState held, Duration timeout) {
    return runOn(strand_, [this, timeout, held, path = std::move(path)]() -> Async<bool> {
        const Client client = co_await idleClient();
        if (!client->has("IDLE")) {
            co_await clock_.wait(std::min(timeout, longestBlindWait));
            co_return true;
        }
        try {
            co_return co_await client->locked([&]() -> Async<bool> {
                if (client->selectedPath() != path) {
                    const IMAPSelectedState found = co_await client->select(path);
                    if (differs(found, held)) co_return true;
                }
                co_return co_await client->idle(path, timeout);
            });
        } catch (...) {
            // A cancelled wait leaves a good session. Dropping a bad one closes it.
            const bool isGood = isCancellation(std::current_exception()) && client->isConnected();
            if (!isGood && idleClient_ == client) idleClient_.reset();
            throw;
        }
    });
}

}
