#include "base/UserError.h"
#include "protocols/IMAPClient.h"
#include "protocols/IMAPSession.h"
#include "protocols/IMAPSyntax.h"

#include <algorithm>
#include <array>
#include <boost/asio/cancellation_state.hpp>
#include <boost/asio/this_coro.hpp>
#include <utility>

namespace velmo {

namespace asio = boost::asio;

namespace {

/// What is left of the time when a wait ends, so that the server is asked to stop before the caller's time is over.
constexpr Duration reserve{1'000};
/// What the end of a wait may take: whoever cancelled it is waiting, too.
constexpr Duration endTime{30'000};
constexpr Duration endTimeOnceCancelled{3'000};
/// Responses without a meaning for the wait, until the server counts as broken.
constexpr std::size_t mostUntaggedLines = 10'000;

bool tellsChange(const IMAPResponse& response) {
    constexpr std::array<std::string_view, 4> changes{"EXISTS", "EXPUNGE", "FETCH", "RECENT"};
    const std::vector<IMAPValue> words = response.values().taken(2);
    return words.size() == 2 &&
           std::ranges::any_of(changes, [&](std::string_view change) { return words[1].isAtom(change); });
}

}

Async<bool> IMAPClient::idle(std::string path, Duration timeout) {
    return runOn(executor_, [this, timeout, path = std::move(path)]() -> Async<bool> {
        refuseLineBreaks({path});
        co_await ensureSelected(path);
        const Session session = session_;
        if (!session || !has("IDLE")) throw IMAPError::disconnected();
        std::optional<bool> hasChanged;
        try {
            hasChanged = co_await idleOn(session, timeout);
        } catch (const MailConnectionError& error) {
            closeSession(session);
            throw IMAPError::connection(error);
        } catch (...) {
            // The server may still be in IDLE.
            closeSession(session);
            throw;
        }
        if (!hasChanged) throw Cancelled();
        co_return *hasChanged;
    });
}

/// Absent when it was cancelled, and left IDLE in good order.
Async<std::optional<bool>> IMAPClient::idleOn(Session session, Duration timeout) {
    const std::string tag = nextTag();
    co_await session->write(tag + " IDLE\r\n");
    // What happened since the last command comes first.
    bool hasChanged = co_await awaitContinuation(*session);
    bool wasCancelled = false;
    try {
        if (!hasChanged) hasChanged = co_await awaitChange(*session, clock_.instant() + timeout);
    } catch (...) {
        if (!isCancellation(std::current_exception())) throw;
        wasCancelled = true;
    }
    // From here to the tagged answer a cancellation is only noted, so that the session can be used afterwards.
    co_await asio::this_coro::throw_if_cancelled(false);
    co_await asio::this_coro::reset_cancellation_state(asio::enable_terminal_cancellation(),
                                                       asio::disable_cancellation());
    std::exception_ptr failure;
    try {
        co_await endIdle(*session, tag, wasCancelled ? endTimeOnceCancelled : endTime);
    } catch (...) {
        failure = std::current_exception();
    }
    const auto state = co_await cancellationState;
    wasCancelled = wasCancelled || isCancelled(state);
    co_await allowCancellation();
    co_await asio::this_coro::throw_if_cancelled(true);
    // Whoever cancelled it does not care how the session ended.
    if (wasCancelled && failure) closeSession(session);
    if (wasCancelled) co_return std::nullopt;
    if (failure) std::rethrow_exception(failure);
    co_return hasChanged;
}

/// True when a change was told before the server was ready to wait.
Async<bool> IMAPClient::awaitContinuation(IMAPSession& session) {
    bool hasChanged = false;
    const Instant deadline = clock_.instant() + imapReadTimeout;
    for (std::size_t lines = 0; lines < mostUntaggedLines && clock_.instant() < deadline; ++lines) {
        const IMAPResponse answer = co_await session.read(imapReadTimeout);
        if (answer.kind() == IMAPResponse::Kind::continuation) co_return hasChanged;
        if (answer.kind() != IMAPResponse::Kind::untagged && answer.kind() != IMAPResponse::Kind::untaggedStatus) break;
        hasChanged = hasChanged || tellsChange(answer);
    }
    throw IMAPError::unexpected("IDLE");
}

Async<bool> IMAPClient::awaitChange(IMAPSession& session, Instant deadline) {
    for (std::size_t lines = 0; lines < mostUntaggedLines; ++lines) {
        const auto remaining = std::chrono::ceil<Duration>(deadline - clock_.instant());
        if (remaining <= reserve) co_return false;
        try {
            const IMAPResponse response = co_await session.read(remaining);
            if (tellsChange(response)) co_return true;
        } catch (const MailConnectionError& error) {
            // The usual end of a quiet wait. If the stream is dead, the next write tells.
            if (error.kind() == MailConnectionError::Kind::cannotConnect) co_return false;
            throw;
        }
        co_await checkCancellation();
    }
    throw MailConnectionError::tooMuch(session.host());
}

Async<void> IMAPClient::endIdle(IMAPSession& session, const std::string& tag, Duration time) {
    const Instant deadline = clock_.instant() + time;
    co_await session.write("DONE\r\n");
    for (std::size_t lines = 0; lines < mostUntaggedLines; ++lines) {
        const auto remaining = std::chrono::ceil<Duration>(deadline - clock_.instant());
        if (remaining <= Duration{0}) throw MailConnectionError::cannotConnect(session.host());
        const IMAPResponse response = co_await session.read(remaining);
        if (response.isTagged(tag)) co_return;
    }
    throw MailConnectionError::tooMuch(session.host());
}

}
