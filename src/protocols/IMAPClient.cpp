#include "protocols/IMAPClient.h"

#include "base/Text.h"
#include "base/UserError.h"
#include "protocols/IMAPSession.h"
#include "protocols/IMAPSyntax.h"

#include <algorithm>
#include <boost/asio/as_tuple.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <utility>

namespace velmo {

namespace asio = boost::asio;

/// One who waits for the session. The timer never goes off by itself; raising it ends the wait.
struct IMAPClient::Waiter {
    explicit Waiter(const Executor& executor) : timer(executor, asio::steady_timer::time_point::max()) {}

    asio::steady_timer timer;
    bool isWoken = false;
};

IMAPClient::IMAPClient(Executor executor, Clock& clock, ServerConfig server, MailCredential credential)
    : executor_(std::move(executor)), clock_(clock), server_(std::move(server)), credential_(std::move(credential)) {}

IMAPClient::~IMAPClient() = default;

// --- Exclusive use -----------------------------------------------------------------------------------------------

Async<void> IMAPClient::acquire() {
    while (isBusy_) {
        auto waiter = std::make_shared<Waiter>(executor_);
        waiters_.push_back(waiter);
        co_await waiter->timer.async_wait(asio::as_tuple(asio::use_awaitable));
        const auto state = co_await cancellationState;
        if (!isCancelled(state)) continue;
        if (!waiter->isWoken) {
            std::erase(waiters_, waiter);
        } else if (!isBusy_) {
            // The turn that this one does not take belongs to the next.
            wakeNext();
        }
        throw Cancelled();
    }
    isBusy_ = true;
}

void IMAPClient::release() {
    isBusy_ = false;
    wakeNext();
}

void IMAPClient::wakeNext() {
    if (waiters_.empty()) return;
    const std::shared_ptr<Waiter> next = std::move(waiters_.front());
    waiters_.pop_front();
    next->isWoken = true;
    next->timer.expires_at(asio::steady_timer::time_point::min());
}

// --- Commands ----------------------------------------------------------------------------------------------------

std::string IMAPClient::nextTag() {
    return "b" + std::to_string(++tagNumber_);
}

Async<void> IMAPClient::close() {
    return callOn(executor_, [this] { closeSession(session_); });
}

/// Does nothing when the session has been replaced by another one meanwhile.
void IMAPClient::closeSession(const Session& session) {
    if (!session || session != session_) return;
    session_->close();
    session_.reset();
    selectedPath_.reset();
    selectedState_.reset();
}

Async<std::vector<IMAPResponse>> IMAPClient::execute(std::string command, Sensitivity sensitivity,
                                                     ContinuationHandler onContinuation) {
    return runOn(executor_,
                 [this, sensitivity, command = std::move(command),
                  onContinuation = std::move(onContinuation)]() -> Async<std::vector<IMAPResponse>> {
                     return converse(command, sensitivity, onContinuation, keepUntagged);
                 });
}

namespace {

/// How many commands may be sent before one is answered.
constexpr std::size_t mostInFlight = 4;

const IMAPClient::ContinuationHandler noContinuation;

/// A session that is left while answers are still to come can't be used again.
struct InFlight {
    explicit InFlight(std::function<void()> closeSession) : close(std::move(closeSession)) {}
    ~InFlight() {
        if (count > 0) close();
    }
    InFlight(const InFlight&) = delete;
    InFlight& operator=(const InFlight&) = delete;

    std::function<void()> close;
    std::size_t count = 0;
};

}

namespace {

/// Ends an answer that goes on beyond all measure.
class AnswerMeter {
  public:
    explicit AnswerMeter(const IMAPSession& session) : session_(session) {}

    /// Counts the response that was read last.
    void count(bool isStreamed) {
        const auto& limits = session_.limits();
        (isStreamed ? streamed_ : kept_) += session_.lastSize();
        if (++lines_ > limits.answerLines || kept_ > limits.keptAnswer || streamed_ > limits.readAnswer)
            throw MailConnectionError::tooMuch(session_.host());
    }

  private:
    const IMAPSession& session_;
    std::size_t lines_ = 0;
    std::size_t kept_ = 0;
    std::size_t streamed_ = 0;
};

}

template <class F>
std::invoke_result_t<F&, IMAPClient::Session> IMAPClient::onSession(F conversation) {
    const Session session = session_;
    if (!session) throw IMAPError::disconnected();
    try {
        co_return co_await conversation(session);
    } catch (const MailConnectionError& error) {
        closeSession(session);
        throw IMAPError::connection(error);
    } catch (const IMAPError&) {
        throw;
    } catch (...) {
        // Cut off somewhere between the command and its answer.
        closeSession(session);
        throw;
    }
}

Async<std::vector<IMAPResponse>> IMAPClient::converse(const std::string& command, Sensitivity sensitivity,
                                                      const ContinuationHandler& onContinuation,
                                                      const UntaggedHandler& onUntagged) {
    refuseLineBreaks({command});
    const auto exchange = [&](Session session) -> Async<std::vector<IMAPResponse>> {
        const std::string tag = nextTag();
        co_await session->write(tag + " " + command + "\r\n");
        Answer answer = co_await readAnswer(session, tag, command, sensitivity, onContinuation, onUntagged);
        if (!answer) throw std::move(answer.error());
        co_return std::move(*answer);
    };
    co_return co_await onSession(exchange);
}

Async<void> IMAPClient::converseInTurn(const std::vector<std::string>& commands, const UntaggedHandler& onUntagged,
                                       const std::function<void(std::size_t, const Answer&)>& onAnswered) {
    for (const std::string& command : commands) refuseLineBreaks({command});
    const auto exchange = [&](Session session) -> Async<void> {
        std::vector<std::string> tags;
        InFlight inFlight([this, session] { closeSession(session); });
        for (std::size_t i = 0; i < commands.size(); ++i) {
            while (tags.size() < std::min(commands.size(), i + mostInFlight)) {
                tags.push_back(nextTag());
                ++inFlight.count;
                co_await session->write(tags.back() + " " + commands[tags.size() - 1] + "\r\n");
            }
            const Answer answer =
                co_await readAnswer(session, tags[i], commands[i], Sensitivity::open, noContinuation, onUntagged);
            --inFlight.count;
            onAnswered(i, answer);
        }
    };
    co_await onSession(exchange);
}

Async<IMAPClient::Answer> IMAPClient::readAnswer(Session session, const std::string& tag, const std::string& command,
                                                 Sensitivity sensitivity, const ContinuationHandler& onContinuation,
                                                 const UntaggedHandler& onUntagged) {
    std::vector<IMAPResponse> responses;
    AnswerMeter meter(*session);
    for (;;) {
        IMAPResponse response = co_await session->read(imapReadTimeout);
        meter.count(onUntagged && response.kind() == IMAPResponse::Kind::untagged);
        if (onUntagged && response.kind() == IMAPResponse::Kind::untagged) {
            onUntagged(response);
            continue;
        }
        const std::string text = session->withoutSecrets(response.text());
        if (response.kind() == IMAPResponse::Kind::continuation) {
            if (!onContinuation) throw IMAPError::unexpected("continuation for " + tag);
            co_await session->write(onContinuation(response.text()));
            continue;
        }
        const bool isBye =
            response.kind() == IMAPResponse::Kind::untaggedStatus && response.status() == IMAPResponse::Status::bye;
        if (isBye && !text::equalsIgnoringCase(command, "LOGOUT")) {
            closeSession(session);
            throw IMAPError::unexpected("server closed the connection: " + text);
        }
        const bool isEnd = response.isTagged(tag);
        if (isEnd && response.status() != IMAPResponse::Status::ok) {
            const std::string code = session->withoutSecrets(response.code().value_or(""));
            co_return std::unexpected(IMAPError::commandFailed(shownCommand(command, sensitivity), text, code));
        }
        responses.push_back(std::move(response));
        if (isEnd) co_return responses;
    }
}

}
