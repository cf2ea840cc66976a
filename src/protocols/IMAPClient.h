#pragma once

#include "base/Async.h"
#include "base/Bytes.h"
#include "base/Clock.h"
#include "protocols/IMAPCopiedUIDs.h"
#include "protocols/IMAPError.h"
#include "protocols/IMAPFetchResult.h"
#include "protocols/IMAPMailbox.h"
#include "protocols/IMAPResponse.h"
#include "protocols/IMAPSelectedState.h"
#include "protocols/MailCredential.h"
#include "protocols/ServerConfig.h"

#include <cstdint>
#include <deque>
#include <expected>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace velmo {

class IMAPSession;

/// Messages by UID, and what of them; see `IMAPClient::uidFetch`.
struct IMAPFetchRequest {
    std::string set;
    std::string items;
};

/// One session with one IMAP server (RFC 3501).
///
/// A serial object: its operations run on the executor given, which is serial, and may be called from any; they
/// interleave at each wait. So a caller that needs more than one command in a row, or shares the session, wraps its
/// calls in `locked`. Its plain getters are for callers on that executor.
///
/// Operations fail with IMAPError: `connection` closes the session, `commandFailed` and an unreadable response leave
/// it open, and a closed session answers `disconnected` until `connect` makes a new one. Cancelling a command closes
/// the session, since its answer would meet the next command; cancelling a wait in `idle` does not. An argument that
/// would break the line of its command (CR, LF or NUL) is refused with `unexpected` before anything is sent.
///
/// An operation on the messages of a mailbox selects it first, unless it is selected.
class IMAPClient {
  public:
    enum class Access { readWrite, readOnly };
    enum class FlagChange { add, remove };
    /// Whether the arguments of a command may stand in an error.
    enum class Sensitivity { open, secret };

    /// Gives the bytes that answer a continuation request, from its text.
    using ContinuationHandler = std::function<Bytes(const std::string& text)>;

    struct MailboxStatus {
        std::int64_t messages = 0;
        std::int64_t unseen = 0;
        std::uint32_t uidNext = 0;
    };

    /// `clock` outlives the client.
    IMAPClient(Executor executor, Clock& clock, ServerConfig server, MailCredential credential);
    ~IMAPClient();
    IMAPClient(const IMAPClient&) = delete;
    IMAPClient& operator=(const IMAPClient&) = delete;

    /// Signs in with this credential from the next `connect` on.
    void setCredential(MailCredential credential) { credential_ = std::move(credential); }

    /// Opens the session and signs in; does nothing when it is open. A failure leaves it closed.
    Async<void> connect();

    /// Cuts the connection and forgets what was selected. What the server can do is remembered.
    Async<void> close();

    bool isConnected() const { return session_ != nullptr; }
    /// Upper-cased.
    const std::set<std::string>& capabilities() const { return capabilities_; }
    bool has(std::string_view capability) const { return capabilities_.contains(std::string(capability)); }
    const std::optional<std::string>& selectedPath() const { return selectedPath_; }
    const std::optional<IMAPSelectedState>& selectedState() const { return selectedState_; }

    /// Asks the server what it can do (§6.1.1).
    Async<void> capability();

    /// Signs in: XOAUTH2, AUTHENTICATE PLAIN (RFC 4616, RFC 4959) or LOGIN.
    Async<void> authenticate();

    /// All mailboxes, with their special uses where the server tells them (RFC 6154).
    Async<std::vector<IMAPMailbox>> listMailboxes();

    /// Selects always, whatever is selected; with CONDSTORE (RFC 7162) where the server has it.
    Async<IMAPSelectedState> select(std::string path, Access access = Access::readWrite);

    /// Counts of a mailbox, without selecting it (§6.3.10).
    Async<MailboxStatus> status(std::string path);

    /// The same for several, of which the next ones are asked before one is answered. In their order; those that the
    /// server refuses, or that can't be asked for, are absent.
    Async<std::vector<std::optional<MailboxStatus>>> statuses(std::vector<std::string> paths);

    /// UIDs in the server's order. `criteria` are IMAP search keys (§6.4.4), in UTF-8.
    Async<std::vector<std::uint32_t>> search(std::string path, std::string criteria);

    /// Messages by UID; `set` as `uidSet` makes it, `items` without the outer parentheses. `changedSince` counts only
    /// where the server has CONDSTORE. The result holds what the server chose to send, in its order.
    Async<std::vector<IMAPFetchResult>> uidFetch(std::string path, std::string set, std::string items,
                                                 std::optional<std::uint64_t> changedSince = {});

    /// Several such fetches of one mailbox. The next ones are sent before one is answered, so that the server goes on
    /// while the client works; `onResults` is given the number of a request and its results, in their order.
    Async<void> uidFetchEach(std::string path, std::vector<IMAPFetchRequest> requests,
                             std::function<void(std::size_t, std::vector<IMAPFetchResult>)> onResults);

    /// Messages by sequence number.
    Async<std::vector<IMAPFetchResult>> fetch(std::string path, std::string set, std::string items);

    Async<void> store(std::string path, std::string set, FlagChange change, std::vector<std::string> flags);

    /// Flags as deleted and expunges; only these messages where the server has UIDPLUS (RFC 4315), otherwise every
    /// message of the mailbox that is flagged so. Refused, they are flagged no more.
    Async<void> deleteMessages(std::string path, std::string set);

    /// Moves (RFC 6851), or copies and deletes where the server can't. Gives where they went, as far as it is told.
    Async<IMAPCopiedUIDs> moveMessages(std::string path, std::string set, std::string destination);

    /// A mailbox that exists already is a success.
    Async<void> createMailbox(std::string path);

    /// Appends a message with CR LF line ends; gives its UID where the server tells it (RFC 4315).
    Async<std::optional<std::uint32_t>> append(std::string path, std::optional<std::vector<std::string>> flags,
                                               Bytes message);

    /// Waits until the server reports a change in the mailbox (RFC 2177) or `timeout` is all but over; true when
    /// something changed. Fails with `disconnected` when the server has no IDLE. When cancelled, it leaves IDLE in
    /// good order and ends with `Cancelled`.
    Async<bool> idle(std::string path, Duration timeout);

    /// Runs one command to its tagged end, and gives all responses up to and with it.
    Async<std::vector<IMAPResponse>> execute(std::string command, Sensitivity sensitivity = Sensitivity::open,
                                             ContinuationHandler onContinuation = {});

    /// Runs `section` (a callable that gives an `Async<T>`) with no other locked section beside it. Those who wait
    /// are let in in the order of their arrival.
    template <class F>
    Async<detail::ResultOf<F>> locked(F section) {
        return runOn(executor_, [this, section = std::move(section)]() mutable -> Async<detail::ResultOf<F>> {
            co_await acquire();
            const Unlock unlock{*this};
            co_return co_await section();
        });
    }

  private:
    struct Waiter;
    struct Unlock {
        IMAPClient& client;
        ~Unlock() { client.release(); }
    };
    using Session = std::shared_ptr<IMAPSession>;

    Async<void> acquire();
    void release();
    void wakeNext();

    Async<void> openSession();
    Async<void> greet(IMAPSession& session);
    Async<void> enableExtensions();
    Async<void> signIn();
    void setCapabilities(const std::vector<std::string_view>& words);
    void refuseUnfitCredential() const;

    std::string nextTag();
    /// Takes the untagged responses of a command as they come.
    using UntaggedHandler = std::function<void(const IMAPResponse&)>;
    inline static const UntaggedHandler keepUntagged{};

    /// Runs `conversation`, which gives an `Async<T>` for the open session, and closes the session when that is cut
    /// off.
    template <class F>
    std::invoke_result_t<F&, Session> onSession(F conversation);
    Async<std::vector<IMAPResponse>> converse(const std::string& command, Sensitivity sensitivity,
                                              const ContinuationHandler& onContinuation,
                                              const UntaggedHandler& onUntagged);
    /// The answer to one command; what stands for a refusal is `commandFailed`.
    using Answer = std::expected<std::vector<IMAPResponse>, IMAPError>;
    /// Several commands, some of them sent ahead (§5.5). `onAnswered` is given the number and the answer of each, in
    /// turn.
    Async<void> converseInTurn(const std::vector<std::string>& commands, const UntaggedHandler& onUntagged,
                               const std::function<void(std::size_t, const Answer&)>& onAnswered);
    void closeSession(const Session& session);

    Async<Answer> readAnswer(Session session, const std::string& tag, const std::string& command,
                             Sensitivity sensitivity, const ContinuationHandler& onContinuation,
                             const UntaggedHandler& onUntagged);

    Async<void> ensureSelected(const std::string& path);
    Async<std::vector<IMAPFetchResult>> fetchResults(std::string path, std::string command);

    Async<std::optional<bool>> idleOn(Session session, Duration timeout);
    Async<bool> awaitContinuation(IMAPSession& session);
    Async<bool> awaitChange(IMAPSession& session, Instant deadline);
    Async<void> endIdle(IMAPSession& session, const std::string& tag, Duration time);

    Executor executor_;
    Clock& clock_;
    ServerConfig server_;
    MailCredential credential_;
    Session session_;
    std::uint64_t tagNumber_ = 0;
    std::set<std::string> capabilities_;
    std::optional<std::string> selectedPath_;
    std::optional<IMAPSelectedState> selectedState_;
    bool isBusy_ = false;
    std::deque<std::shared_ptr<Waiter>> waiters_;
};

/// The text in double quotes, with backslash and double quote escaped (RFC 3501 §4.3).
std::string imapQuoted(std::string_view text);

/// The compact set of message numbers: "1:3,7" (RFC 3501 §9, sequence-set); "" for none.
std::string uidSet(std::span<const std::uint32_t> uids);

/// A set in pieces that a command line has room for: servers need not take more than 8,000 octets (RFC 2683
/// §3.2.1.5). The commands of IMAPClient that take a set cut it themselves.
inline constexpr std::size_t longestSet = 7'000;
std::vector<std::string> setPieces(std::string_view set);

}
