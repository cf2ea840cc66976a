#include "sync/SyncEngine.h"

#include "base/Text.h"
#include "base/UserError.h"
#include "sync/FetchedMessages.h"

#include <algorithm>
#include <fmt/format.h>
#include <limits>
#include <tuple>
#include <unordered_set>
#include <utility>

namespace velmo {

namespace {

constexpr std::string_view headerItems = "UID FLAGS INTERNALDATE RFC822.SIZE ENVELOPE BODYSTRUCTURE "
                                         "BODY.PEEK[HEADER.FIELDS (REFERENCES LIST-UNSUBSCRIBE LIST-ID PRECEDENCE)]";
constexpr std::string_view gmailItem = " X-GM-THRID";
constexpr std::int64_t firstSyncBatch = 200;
constexpr std::size_t statusesInARow = 50;
/// Refused slices of heads, until the whole command counts as refused: each message that is refused alone costs as many
/// as the slice can be halved.
constexpr int mostRefusals = 60;
constexpr std::size_t snippetChunk = 100;
constexpr std::size_t snippetChunksInARow = 8;
constexpr int plainSnippetBytes = 1500;
constexpr int htmlSnippetBytes = 8000;

constexpr Duration logOutTime{10'000};

std::string messageItems(const IMAPClient& client) {
    std::string items(headerItems);
    if (client.has("X-GM-EXT-1")) items += gmailItem;
    return items;
}

void append(std::vector<SyncedMessage>& to, std::vector<SyncedMessage> more) {
    to.insert(to.end(), std::move_iterator(more.begin()), std::move_iterator(more.end()));
}

void join(FetchedHeads& to, FetchedHeads more) {
    append(to.messages, std::move(more.messages));
    to.flags.merge(more.flags);
    if (more.refusal) to.refusal = std::move(more.refusal);
}

/// A message that is there, and that the server tells nothing about.
SyncedMessage headless(std::uint32_t uid, Date now) {
    SyncedMessage message;
    message.uid = uid;
    message.hasFlags = false;
    message.date = now;
    return message;
}

/// Goes on where the server refuses; every other failure is thrown.
template <class F>
Async<void> unlessRefused(F command) {
    try {
        co_await command();
    } catch (const IMAPError& error) {
        if (error.kind() != IMAPError::Kind::commandFailed) throw;
    }
}

/// What is held of a mailbox that has new numbers.
void forgetNumbers(SyncState& stored) {
    SyncState now;
    now.arrived = std::move(stored.arrived);
    now.arrivedFrom = stored.arrivedFrom;
    now.arrivedUIDValidity = stored.arrivedUIDValidity;
    now.isPartial = stored.isPartial;
    stored = std::move(now);
}

/// Messages whose snippet is in the same section and of the same kind; one command serves them all.
struct SnippetGroup {
    std::string section;
    int limit = plainSnippetBytes;
    friend auto operator<=>(const SnippetGroup&, const SnippetGroup&) = default;
};

struct Wanted {
    SyncedMessage* message;
    IMAPBodyPart part;
};

using SnippetPlan = std::map<SnippetGroup, std::vector<Wanted>>;

SnippetPlan planSnippets(std::vector<SyncedMessage>& messages) {
    SnippetPlan plan;
    for (SyncedMessage& message : messages) {
        auto part = message.bodyStructure ? snippetPart(*message.bodyStructure) : std::nullopt;
        if (!part) continue;
        SnippetGroup group;
        group.section = part->section;
        group.limit = part->subtype == "html" ? htmlSnippetBytes : plainSnippetBytes;
        plan[std::move(group)].push_back(Wanted{&message, std::move(*part)});
    }
    return plan;
}

/// What one command of the plan asks for.
struct SnippetChunk {
    std::string section;
    std::span<Wanted> wanted;
};

void placeSnippets(const SnippetChunk& chunk, const std::vector<IMAPFetchResult>& results) {
    std::map<std::uint32_t, const Bytes*> beginnings;
    for (const IMAPFetchResult& result : results) {
        const auto found = result.sections.find(chunk.section);
        if (result.uid && found != result.sections.end()) beginnings[*result.uid] = &found->second;
    }
    for (Wanted& one : chunk.wanted) {
        const auto found = beginnings.find(one.message->uid);
        if (found != beginnings.end()) one.message->snippet = snippetOf(*found->second, one.part);
    }
}

IMAPFetchRequest snippetRequest(const SnippetGroup& group, std::span<const Wanted> wanted) {
    std::vector<std::uint32_t> uids;
    for (const Wanted& one : wanted) uids.push_back(one.message->uid);
    IMAPFetchRequest request;
    request.set = uidSet(uids);
    request.items = fmt::format("UID BODY.PEEK[{}]<0.{}>", group.section, group.limit);
    return request;
}

}

SyncEngine::SyncEngine(UUID accountID, ServerConfig server, CredentialSource credential, Clock& clock,
                       const Executor& io)
    : accountID_(accountID),
      server_(std::move(server)),
      credential_(std::move(credential)),
      clock_(clock),
      strand_(makeStrand(io)) {}

// --- Sessions ----------------------------------------------------------------------------------------------------

Async<std::shared_ptr<IMAPClient>> SyncEngine::connectedClient() {
    return runOn(strand_, [this]() -> Async<Client> {
        std::optional<MailCredential> credential;
        if (!client_) {
            credential = co_await credential_();
            // Another operation may have been faster.
            if (!client_) client_ = std::make_shared<IMAPClient>(strand_, clock_, server_, *credential);
        }
        Client client = client_;
        co_return co_await openClient(std::move(client), std::move(credential));
    });
}

/// Connects where that is needed, with a credential of now.
Async<SyncEngine::Client> SyncEngine::openClient(Client client, std::optional<MailCredential> credential) {
    co_await client->locked([this, &client, &credential]() -> Async<void> {
        if (client->isConnected()) co_return;
        if (!credential) credential = co_await credential_();
        client->setCredential(std::move(*credential));
        co_await client->connect();
    });
    co_return client;
}

Async<void> SyncEngine::disconnect() {
    return runOn(strand_, [this]() -> Async<void> {
        Client commands = std::exchange(client_, nullptr);
        Client idle = std::exchange(idleClient_, nullptr);
        if (commands) co_await logOut(std::move(commands));
        if (idle) co_await logOut(std::move(idle));
    });
}

Async<void> SyncEngine::logOut(Client client) {
    try {
        co_await within(clock_, logOutTime, [&client] {
            return client->locked([&client]() -> Async<void> { co_await client->execute("LOGOUT"); });
        });
    } catch (const std::exception&) {
        // The session ends with the connection then.
    }
    co_await client->close();
}

Async<std::vector<std::uint32_t>> SyncEngine::search(const Client& client, const std::string& path,
                                                     std::string criteria) {
    co_return co_await client->locked([&] { return client->search(path, std::move(criteria)); });
}

Async<std::vector<IMAPFetchResult>> SyncEngine::uidFetch(const Client& client, const std::string& path, std::string set,
                                                         std::string items, std::optional<std::uint64_t> changedSince) {
    co_return co_await client->locked(
        [&] { return client->uidFetch(path, std::move(set), std::move(items), changedSince); });
}

// --- Mailboxes ---------------------------------------------------------------------------------------------------

Async<std::vector<ListedMailbox>> SyncEngine::listMailboxes() {
    return runOn(strand_, [this]() -> Async<std::vector<ListedMailbox>> {
        const Client client = co_await connectedClient();
        std::vector<IMAPMailbox> mailboxes = co_await client->locked([&client] { return client->listMailboxes(); });
        std::vector<ListedMailbox> listed;
        std::vector<std::size_t> counted;
        for (IMAPMailbox& mailbox : mailboxes) {
            if (mailbox.isSelectable()) counted.push_back(listed.size());
            ListedMailbox entry;
            entry.mailbox = std::move(mailbox);
            listed.push_back(std::move(entry));
        }
        for (std::span<const std::size_t> rest(counted); !rest.empty();) {
            const auto now = rest.first(std::min(rest.size(), statusesInARow));
            rest = rest.subspan(now.size());
            std::vector<std::string> paths;
            for (const auto place : now) paths.push_back(listed[place].mailbox.path);
            const Statuses found = co_await statusesOf(client, std::move(paths));
            for (std::size_t i = 0; i < found.size(); ++i) {
                // One mailbox without counts is no reason to have none of them.
                if (!found[i]) continue;
                listed[now[i]].messages = found[i]->messages;
                listed[now[i]].unseen = found[i]->unseen;
            }
        }
        co_return listed;
    });
}

/// Of the mailbox that is selected a server may tell what this session last heard of it (RFC 3501 §6.3.10); a NOOP
/// makes the session listen.
Async<SyncEngine::Statuses> SyncEngine::statusesOf(Client client, std::vector<std::string> paths) {
    co_return co_await client->locked([&]() -> Async<Statuses> {
        const auto& selected = client->selectedPath();
        if (selected && std::ranges::find(paths, *selected) != paths.end())
            co_await unlessRefused([&] { return client->execute("NOOP"); });
        co_return co_await client->statuses(paths);
    });
}

Async<MailboxDelta> SyncEngine::syncMailbox(std::string path, SyncState stored) {
    return runOn(strand_, [this, path = std::move(path), stored = std::move(stored)]() mutable -> Async<MailboxDelta> {
        return syncFrom(path, std::move(stored));
    });
}

Async<MailboxDelta> SyncEngine::syncFrom(const std::string& path, SyncState stored) {
    const Client client = co_await connectedClient();
    MailboxDelta delta;
    delta.state = co_await client->locked([&] { return client->select(path); });
    delta.isReset = stored.uidValidity != 0 && stored.uidValidity != delta.state.uidValidity;
    if (delta.isReset) forgetNumbers(stored);
    if (delta.state.exists < 1) {
        delta.vanished = std::move(stored.knownUIDs);
        co_return delta;
    }
    delta.isFilling = stored.knownUIDs.empty() && !stored.isPartial;
    if (delta.isFilling) {
        auto heads = co_await fetchNewest(client, path, delta.state.exists);
        take(std::move(heads), delta);
    } else if (!stored.isPartial) {
        co_await readNew(client, path, stored, delta);
    }
    co_await readArrived(client, path, stored, delta);
    if (!stored.knownUIDs.empty()) {
        co_await readHeadless(client, path, stored, delta);
        co_await readFlags(client, path, stored, delta);
        co_await readVanished(client, path, stored, delta);
    }
    co_await addSnippets(client, path, delta.newMessages);
    co_return delta;
}

// --- Heads ---------------------------------------------------------------------------------------------------------

/// What came without a head is asked for once more.
Async<FetchedHeads> SyncEngine::withBare(const Client& client, const std::string& path, FetchedHeads fetched) {
    auto bare = std::exchange(fetched.bare, {});
    if (bare.empty()) co_return fetched;
    auto more = co_await fetchHeads(client, path, std::move(bare));
    join(fetched, std::move(more));
    co_return fetched;
}

void SyncEngine::take(FetchedHeads heads, MailboxDelta& delta) {
    append(delta.newMessages, std::move(heads.messages));
    delta.flagChanges.merge(heads.flags);
    if (heads.refusal) delta.refusal = std::move(heads.refusal);
}

Async<FetchedHeads> SyncEngine::fetchNewest(const Client& client, const std::string& path, std::int64_t exists) {
    const std::int64_t start = std::max(exists, firstSyncBatch) - (firstSyncBatch - 1);
    const std::string newest = fmt::format("{}:*", start);
    try {
        auto results = co_await client->locked([&] { return client->fetch(path, newest, messageItems(*client)); });
        const auto isAsked = [start](const IMAPFetchResult& result) { return result.sequence >= start; };
        co_return co_await withBare(client, path, fetchedHeads(std::move(results), isAsked, clock_.now()));
    } catch (const IMAPError& error) {
        if (error.kind() != IMAPError::Kind::commandFailed) throw;
    }
    auto uids = co_await search(client, path, newest);
    co_return co_await fetchHeads(client, path, std::move(uids));
}

Async<FetchedHeads> SyncEngine::fetchFrom(const Client& client, const std::string& path, std::uint32_t first) {
    const std::string rest = fmt::format("{}:*", first);
    try {
        auto results = co_await uidFetch(client, path, rest, messageItems(*client));
        // "n:*" always gives the last message, also when its number is lower.
        const auto isAsked = [first](const IMAPFetchResult& result) { return result.uid >= first; };
        co_return co_await withBare(client, path, fetchedHeads(std::move(results), isAsked, clock_.now()));
    } catch (const IMAPError& error) {
        if (error.kind() != IMAPError::Kind::commandFailed) throw;
    }
    auto uids = co_await search(client, path, "UID " + rest);
    std::erase_if(uids, [first](std::uint32_t uid) { return uid < first; });
    co_return co_await fetchHeads(client, path, std::move(uids));
}

/// One message that the server can't read must not hide those beside it: a slice that is refused is halved, until the
/// one stands alone. It comes without a head, and is asked for again later. A server that refuses nearly everything is
/// believed.
Async<FetchedHeads> SyncEngine::fetchHeads(const Client& client, const std::string& path,
                                           std::vector<std::uint32_t> uids) {
    std::ranges::sort(uids);
    FetchedHeads heads;
    int refusals = 0;
    std::vector<std::span<const std::uint32_t>> waiting;
    if (!uids.empty()) waiting.emplace_back(uids);
    while (!waiting.empty()) {
        const auto slice = waiting.back();
        waiting.pop_back();
        std::optional<IMAPError> refusal;
        try {
            auto results = co_await uidFetch(client, path, uidSet(slice), messageItems(*client));
            const auto isAsked = [slice](const IMAPFetchResult& result) {
                return std::ranges::binary_search(slice, *result.uid);
            };
            auto fetched = fetchedHeads(std::move(results), isAsked, clock_.now());
            for (const auto uid : fetched.bare) fetched.messages.push_back(headless(uid, clock_.now()));
            join(heads, std::move(fetched));
        } catch (const IMAPError& error) {
            if (error.kind() != IMAPError::Kind::commandFailed || ++refusals > mostRefusals) throw;
            refusal = error;
        }
        if (!refusal) continue;
        heads.refusal = refusal->sentence();
        if (slice.size() > 1) {
            waiting.push_back(slice.subspan(slice.size() / 2));
            waiting.push_back(slice.first(slice.size() / 2));
            continue;
        }
        heads.messages.push_back(headless(slice.front(), clock_.now()));
    }
    co_return heads;
}

Async<void> SyncEngine::readNew(const Client& client, const std::string& path, const SyncState& stored,
                                MailboxDelta& delta) {
    if (delta.state.uidNext != 0 && stored.uidNext >= delta.state.uidNext) co_return;
    const std::int64_t start =
        std::max<std::int64_t>(std::ranges::max(stored.knownUIDs) + std::int64_t{1}, stored.uidNext);
    if (start > std::numeric_limits<std::uint32_t>::max()) co_return;
    auto heads = co_await fetchFrom(client, path, static_cast<std::uint32_t>(start));
    take(std::move(heads), delta);
}

/// What was moved there may be more than a filling holds, and all that is wanted of a mailbox that is held in part. Of
/// a filling nothing above its oldest message may be missing, since nobody would look for it there.
Async<void> SyncEngine::readArrived(const Client& client, const std::string& path, const SyncState& stored,
                                    MailboxDelta& delta) {
    auto [uids, from, numbering] = std::tuple(stored.arrived, stored.arrivedFrom, stored.arrivedUIDValidity);
    if (numbering != 0 && numbering != delta.state.uidValidity) co_return;
    if (!uids.empty() && (delta.isFilling || from != 0)) from = from == 0 ? uids.front() : std::min(from, uids.front());
    if (from != 0 && (delta.isFilling || stored.isPartial))
        uids = co_await search(client, path, fmt::format("UID {}:*", from));
    std::unordered_set<std::uint32_t> here(stored.knownUIDs.begin(), stored.knownUIDs.end());
    for (const auto& message : delta.newMessages) here.insert(message.uid);
    std::erase_if(uids, [&, from = from](auto uid) { return uid < from || here.contains(uid); });
    if (uids.empty()) co_return;
    auto heads = co_await fetchHeads(client, path, std::move(uids));
    take(std::move(heads), delta);
}

Async<void> SyncEngine::readHeadless(const Client& client, const std::string& path, const SyncState& stored,
                                     MailboxDelta& delta) {
    if (stored.headless.empty()) co_return;
    auto heads = co_await fetchHeads(client, path, stored.headless);
    std::erase_if(heads.messages, [](const SyncedMessage& message) { return !message.envelope; });
    take(std::move(heads), delta);
}

Async<void> SyncEngine::readFlags(const Client& client, const std::string& path, const SyncState& stored,
                                  MailboxDelta& delta) {
    std::optional<std::uint64_t> changedSince;
    // A mailbox that has lost its mod-sequences refuses to be asked by them (RFC 7162 §3.1.2.2).
    if (client->has("CONDSTORE") && stored.highestModSeq != 0 && delta.state.highestModSeq) {
        changedSince = static_cast<std::uint64_t>(stored.highestModSeq);
        if (delta.state.highestModSeq == changedSince) co_return;
    }
    const auto results = co_await uidFetch(client, path, uidSet(stored.knownUIDs), "UID FLAGS", changedSince);
    for (const IMAPFetchResult& result : results) {
        if (result.uid && result.flags) delta.flagChanges.insert_or_assign(*result.uid, *result.flags);
    }
}

Async<void> SyncEngine::readVanished(const Client& client, const std::string& path, const SyncState& stored,
                                     MailboxDelta& delta) {
    std::unordered_set<std::uint32_t> existing;
    for (const auto& piece : setPieces(uidSet(stored.knownUIDs))) {
        const auto found = co_await search(client, path, "UID " + piece);
        existing.insert(found.begin(), found.end());
    }
    std::ranges::copy_if(stored.knownUIDs, std::back_inserter(delta.vanished),
                         [&](std::uint32_t uid) { return !existing.contains(uid); });
}

/// Works the answer to one command out while the server is at the next.
Async<void> SyncEngine::addSnippets(const Client& client, const std::string& path,
                                    std::vector<SyncedMessage>& messages) {
    SnippetPlan plan = planSnippets(messages);
    std::vector<SnippetChunk> chunks;
    std::vector<IMAPFetchRequest> requests;
    for (auto& [group, all] : plan) {
        for (std::span<Wanted> rest(all); !rest.empty();) {
            const auto wanted = rest.first(std::min(rest.size(), snippetChunk));
            rest = rest.subspan(wanted.size());
            chunks.push_back({group.section, wanted});
            requests.push_back(snippetRequest(group, wanted));
        }
    }
    // Others get a turn in between.
    for (std::size_t first = 0; first < requests.size(); first += snippetChunksInARow) {
        const auto last = std::min(requests.size(), first + snippetChunksInARow);
        const std::vector<IMAPFetchRequest> now(requests.begin() + std::ptrdiff_t(first),
                                                requests.begin() + std::ptrdiff_t(last));
        const auto place = [&chunks, first](std::size_t number, const std::vector<IMAPFetchResult>& results) {
            placeSnippets(chunks[first + number], results);
        };
        // A message without the beginning of its text is better than none.
        co_await unlessRefused([&] { return client->locked([&] { return client->uidFetchEach(path, now, place); }); });
    }
}

}
