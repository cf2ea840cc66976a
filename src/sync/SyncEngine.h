#pragma once

#include "base/Async.h"
#include "base/Bytes.h"
#include "base/Clock.h"
#include "base/UUID.h"
#include "protocols/IMAPClient.h"
#include "sync/ListedMailbox.h"
#include "sync/MailboxDelta.h"
#include "sync/WriterTypes.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace velmo {

struct FetchedHeads;

/// The server side of one account's synchronisation: turns what is held of a mailbox into what changed on the server.
///
/// A serial object on a strand of its own, which its two sessions share; operations may be called from any executor,
/// and beside each other. It stores nothing. Sessions are opened when they are needed, and opened again after a
/// failure. Every failure is an IMAPError or what the credential source throws, and comes through unchanged; an
/// operation that fails gives nothing partial. Cancelling an operation ends it with a cancellation.
class SyncEngine {
  public:
    /// Asked for each session that is opened, since access tokens are short-lived.
    using CredentialSource = std::function<Async<MailCredential>()>;

    /// `clock` outlives the engine.
    SyncEngine(UUID accountID, ServerConfig server, CredentialSource credential, Clock& clock, const Executor& io);

    UUID accountID() const { return accountID_; }

    /// The command session, connected. Its calls are to be wrapped in `locked`.
    Async<std::shared_ptr<IMAPClient>> connectedClient();

    /// Logs out of both sessions and drops them; fails never.
    Async<void> disconnect();

    /// All mailboxes in the server's order. One that can't be selected, or whose counts can't be had, has zeros.
    Async<std::vector<ListedMailbox>> listMailboxes();

    /// What changed since `stored`. With nothing known, the newest messages, and all that arrived; see MailboxDelta. Of
    /// a mailbox that is held in part only what is held, and what arrived.
    Async<MailboxDelta> syncMailbox(std::string path, SyncState stored);

    /// The UIDs below `oldestUID` that exist, ascending.
    Async<std::vector<std::uint32_t>> olderUIDs(std::string path, std::uint32_t oldestUID);

    /// Those of these messages that the server has. Fails with IMAPError::unexpected when they have new numbers since
    /// `uidValidity` (0: unknown). One that the server refuses to tell about comes without a head.
    Async<std::vector<SyncedMessage>> fetchMessages(std::string path, std::int64_t uidValidity,
                                                    std::vector<std::uint32_t> uids);

    /// A whole message. Fails with IMAPError::unexpected when the server no longer has it, or has numbered its messages
    /// anew since `uidValidity` (0: unknown), so that the number may mean another one.
    Async<Bytes> fetchRawMessage(std::string path, std::int64_t uidValidity, std::uint32_t uid);

    /// Whole messages; those that the server no longer has are missing. Fails as above when they were numbered anew.
    Async<std::map<std::uint32_t, Bytes>> fetchRawMessages(std::string path, std::int64_t uidValidity,
                                                           std::vector<std::uint32_t> uids);

    /// Messages that the server finds for a person's words, in its own order.
    Async<std::vector<std::uint32_t>> remoteSearch(std::string path, std::string query);

    // An identifier that is empty or no single word is that of no message: nothing is found by it, and nothing
    // replaced.

    /// Moves the message with this Message-ID, and takes flags away before; false when there is none.
    Async<bool> moveByMessageID(std::string path, std::string messageID, std::string destination,
                                std::optional<std::vector<std::string>> clearFlags);

    /// Puts a message into a mailbox, in the place of those with its Message-ID: they go once it is in.
    Async<void> replaceByMessageID(std::string path, std::string messageID, std::vector<std::string> flags,
                                   Bytes message);

    /// Gives the message with this Message-ID a flag; false when there is none.
    Async<bool> flagByMessageID(std::string path, std::string messageID, std::string flag);

    /// Deletes the message with this Message-ID; false when there is none.
    Async<bool> deleteByMessageID(std::string path, std::string messageID);

    /// Waits until a sync of the mailbox is worth while; false when `timeout` passed without a change. Uses a session
    /// of its own; when that opens the mailbox and finds it otherwise than `held`, the wait is over. Where the server
    /// can't tell, a shorter wait ends with true.
    Async<bool> waitForChanges(std::string path, IMAPSelectedState held, Duration timeout);

  private:
    using Client = std::shared_ptr<IMAPClient>;

    Async<Client> openClient(Client client, std::optional<MailCredential> credential);
    Async<Client> idleClient();
    Async<void> logOut(Client client);
    Async<std::vector<std::uint32_t>> search(const Client& client, const std::string& path, std::string criteria);
    Async<std::vector<std::uint32_t>> withMessageID(const Client& client, const std::string& path,
                                                    std::string messageID);
    Async<std::vector<IMAPFetchResult>> uidFetch(const Client& client, const std::string& path, std::string set,
                                                 std::string items, std::optional<std::uint64_t> changedSince = {});
    Async<FetchedHeads> withBare(const Client& client, const std::string& path, FetchedHeads fetched);
    Async<FetchedHeads> fetchHeads(const Client& client, const std::string& path, std::vector<std::uint32_t> uids);
    Async<FetchedHeads> fetchNewest(const Client& client, const std::string& path, std::int64_t exists);
    Async<FetchedHeads> fetchFrom(const Client& client, const std::string& path, std::uint32_t first);
    Async<void> readHeadless(const Client& client, const std::string& path, const SyncState& stored,
                             MailboxDelta& delta);
    static void take(FetchedHeads heads, MailboxDelta& delta);
    using Statuses = std::vector<std::optional<IMAPClient::MailboxStatus>>;
    static Async<Statuses> statusesOf(Client client, std::vector<std::string> paths);
    Async<MailboxDelta> syncFrom(const std::string& path, SyncState stored);
    Async<void> readNew(const Client& client, const std::string& path, const SyncState& stored, MailboxDelta& delta);
    Async<void> readArrived(const Client& client, const std::string& path, const SyncState& stored,
                            MailboxDelta& delta);
    static Async<std::vector<IMAPFetchResult>> fetchWhole(const Client& client, const std::string& path,
                                                          std::int64_t uidValidity, std::string set);
    Async<void> readFlags(const Client& client, const std::string& path, const SyncState& stored, MailboxDelta& delta);
    Async<void> readVanished(const Client& client, const std::string& path, const SyncState& stored,
                             MailboxDelta& delta);
    Async<void> addSnippets(const Client& client, const std::string& path, std::vector<SyncedMessage>& messages);

    UUID accountID_;
    ServerConfig server_;
    CredentialSource credential_;
    Clock& clock_;
    Executor strand_;
    Client client_;
    Client idleClient_;
};

}
