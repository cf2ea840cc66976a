#include "protocols/MailConnection.h"

#include "base/Text.h"
#include "base/UserError.h"
#include "protocols/SocketConnector.h"
#include "protocols/Watchdog.h"

#include <algorithm>
#include <array>
#include <boost/asio/as_tuple.hpp>
#include <boost/asio/experimental/awaitable_operators.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl/context.hpp>
#include <boost/asio/ssl/error.hpp>
#include <boost/asio/ssl/host_name_verification.hpp>
#include <boost/asio/ssl/stream.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <boost/asio/write.hpp>
#include <optional>
#include <sys/socket.h>

namespace velmo {

namespace asio = boost::asio;
namespace ssl = boost::asio::ssl;
using Error = boost::system::error_code;
using Socket = asio::ip::tcp::socket;

namespace {

constexpr auto asResult = asio::as_tuple(asio::use_awaitable);

/// Bytes received and not yet consumed. Consuming moves an offset, searching goes on where it stopped; so a peer that
/// sends single bytes costs no more than one that sends blocks.
class ReceiveBuffer {
  public:
    BytesView unread() const { return BytesView(bytes_).substr(start_); }

    void append(BytesView bytes) {
        if (start_ > 0 && start_ * 2 >= bytes_.size()) {
            bytes_.erase(0, start_);
            searched_ -= std::min(searched_, start_);
            start_ = 0;
        }
        bytes_.append(bytes);
    }

    void consume(std::size_t count) {
        start_ += count;
        searched_ = start_;
    }

    void clear() {
        bytes_.clear();
        start_ = searched_ = 0;
    }

    /// The line up to the next CR LF, when there is one.
    std::optional<BytesView> line() {
        const std::size_t end = bytes_.find("\r\n", searched_);
        if (end != Bytes::npos) return BytesView(bytes_).substr(start_, end - start_);
        // The last byte may be the CR of a pair.
        searched_ = std::max(start_, bytes_.size() - std::min<std::size_t>(bytes_.size(), 1));
        return std::nullopt;
    }

  private:
    Bytes bytes_;
    std::size_t start_ = 0;
    std::size_t searched_ = 0;
};

asio::ip::tcp familyOf(int socket) {
    sockaddr_storage address{};
    socklen_t size = sizeof address;
    getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size);
    return address.ss_family == AF_INET6 ? asio::ip::tcp::v6() : asio::ip::tcp::v4();
}

bool isEndOfStream(const Error& error) {
    return error == asio::error::eof || error == ssl::error::stream_truncated;
}

}

/// Outlives its MailConnection while an operation is still on its way out.
class MailConnection::Stream : public std::enable_shared_from_this<Stream> {
  public:
    Stream(const Executor& io, Clock& clock, std::string host, int port, ServerConfig::Security security)
        : clock_(clock),
          host_(std::move(host)),
          port_(port),
          wantsTLS_(security == ServerConfig::Security::tls),
          closing_(io, asio::steady_timer::time_point::max()),
          socket_(io),
          watchdog_(std::make_shared<Watchdog>(io, clock, [this] {
              Error ignored;
              socket_.cancel(ignored);
          })) {}

    const std::string& host() const { return host_; }
    ReceiveBuffer& buffer() { return buffer_; }

    /// Appends what arrives next to the buffer; at least one byte.
    Async<void> fill(Duration timeout) {
        if (takeArrived()) co_return;
        const std::shared_ptr<Stream> self = shared_from_this();
        co_await guarded(timeout, Failure::leavesStream, [this]() -> Async<Error> {
            const auto [error, count] = tls_ ? co_await tls_->async_read_some(asio::buffer(chunk_), asResult)
                                             : co_await socket_.async_read_some(asio::buffer(chunk_), asResult);
            // What arrived together with a time-out counts.
            buffer_.append(BytesView(chunk_.data(), count));
            co_return count > 0 ? Error() : error;
        });
    }

    Async<void> send(Bytes bytes) {
        const std::shared_ptr<Stream> self = shared_from_this();
        BytesView rest = bytes;
        do {
            const auto piece = asio::buffer(rest.data(), std::min(rest.size(), writePiece));
            co_await guarded(writeTimeout, Failure::killsStream, [this, piece]() -> Async<Error> {
                const auto [error, count] = tls_ ? co_await asio::async_write(*tls_, piece, asResult)
                                                 : co_await asio::async_write(socket_, piece, asResult);
                co_return error;
            });
            rest.remove_prefix(piece.size());
        } while (!rest.empty());
    }

    void startTLS() {
        buffer_.clear();
        wantsTLS_ = true;
    }

    void close() {
        isClosed_ = true;
        closing_.expires_at(asio::steady_timer::time_point::min());
        watchdog_->stop();
        Error ignored;
        socket_.close(ignored);
    }

  private:
    /// What an operation that was cut short means for the stream.
    enum class Failure { leavesStream, killsStream };

    bool isReady() const { return isConnected_ && wantsTLS_ == tls_.has_value() && !isHandshaking_; }

    /// Takes what is here already, which costs neither a wait nor a timer; false when nothing is. A failure is left for
    /// the wait that follows. Now and then it stands back, so that a fast server does not keep the thread from others.
    bool takeArrived() {
        constexpr int mostInARow = 16;
        if (!isReady() || failure_ || isClosed_ || ++takenInARow_ > mostInARow) {
            takenInARow_ = 0;
            return false;
        }
        Error error;
        const std::size_t count =
            tls_ ? tls_->read_some(asio::buffer(chunk_), error) : socket_.read_some(asio::buffer(chunk_), error);
        if (error || count == 0) return false;
        buffer_.append(BytesView(chunk_.data(), count));
        return true;
    }

    /// How an operation on the stream came to its end.
    enum class Ending { done, endOfStream, failed, timedOut, aborted };

    /// Runs `operation` (a callable that gives an `Async<Error>`) on the opened stream, all within `timeout`.
    template <class F>
    Async<void> guarded(Duration timeout, Failure whenCut, F operation) {
        if (failure_) throw *failure_;
        if (isClosed_) throw MailConnectionError::cannotConnect(host_);
        const Ending ending = isReady() ? co_await watched(timeout, operation) : co_await opened(timeout, operation);
        if (ending == Ending::done) co_return;
        const MailConnectionError error = ending == Ending::endOfStream ? MailConnectionError::closed(host_)
                                                                        : MailConnectionError::cannotConnect(host_);
        const bool wasCut = ending == Ending::timedOut || ending == Ending::aborted;
        if (!wasCut || whenCut == Failure::killsStream || !isReady()) failure_ = error;
        if (ending == Ending::aborted && !isClosed_) throw Cancelled();
        throw error;
    }

    /// On a stream that is open.
    template <class F>
    Async<Ending> watched(Duration timeout, F& operation) {
        watchdog_->arm(timeout);
        Error error = asio::error::operation_aborted;
        try {
            error = co_await operation();
        } catch (...) {
            if (!isCancellation(std::current_exception())) error = asio::error::fault;
        }
        const bool hasExpired = watchdog_->disarm();
        co_return error == asio::error::operation_aborted&& hasExpired ? Ending::timedOut : endingOf(error);
    }

    /// Opens the stream first.
    template <class F>
    Async<Ending> opened(Duration timeout, F& operation) {
        try {
            const auto outcome = co_await within(clock_, timeout, [this, &operation]() -> Async<Error> {
                co_await open();
                const Error error = co_await operation();
                // Thrown, so that a time-out is not taken for a result.
                if (error == asio::error::operation_aborted) throw boost::system::system_error(error);
                co_return error;
            });
            co_return outcome ? endingOf(*outcome) : Ending::timedOut;
        } catch (...) {
            co_return isCancellation(std::current_exception()) ? Ending::aborted : Ending::failed;
        }
    }

    static Ending endingOf(const Error& error) {
        if (!error) return Ending::done;
        if (error == asio::error::operation_aborted) return Ending::aborted;
        return isEndOfStream(error) ? Ending::endOfStream : Ending::failed;
    }

    Async<void> open() {
        if (!isConnected_) {
            using namespace asio::experimental::awaitable_operators;
            const auto opened = co_await (connect() || closing_.async_wait(asResult));
            if (opened.index() == 1 || std::get<0>(opened))
                throw boost::system::system_error(opened.index() == 1 ? asio::error::operation_aborted
                                                                      : std::get<0>(opened));
            isConnected_ = true;
        }
        if (wantsTLS_) co_await handshake();
    }

    /// Gives the error, since a race of two hides what is thrown.
    Async<Error> connect() {
        try {
            const auto found = co_await connector::resolve(host_, port_);
            auto endpoints = connector::interleaved(found);
            FileDescriptor connected = co_await connector::connectFirst(clock_, std::move(endpoints));
            socket_.assign(familyOf(connected.get()), connected.release());
            socket_.set_option(asio::ip::tcp::no_delay(true));
            socket_.set_option(asio::socket_base::keep_alive(true));
            socket_.non_blocking(true);
            co_return Error();
        } catch (const boost::system::system_error& error) {
            co_return error.code();
        } catch (const Cancelled&) {
            co_return asio::error::operation_aborted;
        }
    }

    Async<void> handshake() {
        isHandshaking_ = true;
        context_.emplace(ssl::context::tls_client);
        SSL_CTX_set_min_proto_version(context_->native_handle(), TLS1_2_VERSION);
        context_->set_default_verify_paths();
        tls_.emplace(socket_, *context_);
        tls_->set_verify_mode(ssl::verify_peer);
        tls_->set_verify_callback(ssl::host_name_verification(host_));
        Error notLiteral;
        static_cast<void>(asio::ip::make_address(host_, notLiteral));
        // A literal address is no server name (RFC 6066 §3).
        if (notLiteral)
            SSL_ctrl(tls_->native_handle(), SSL_CTRL_SET_TLSEXT_HOSTNAME, TLSEXT_NAMETYPE_host_name, host_.data());
        const auto [error] = co_await tls_->async_handshake(ssl::stream_base::client, asResult);
        if (error) throw boost::system::system_error(error);
        isHandshaking_ = false;
    }

    Clock& clock_;
    std::string host_;
    int port_;
    bool wantsTLS_;
    bool isConnected_ = false;
    bool isHandshaking_ = false;
    bool isClosed_ = false;
    int takenInARow_ = 0;
    std::optional<MailConnectionError> failure_;
    asio::steady_timer closing_;
    Socket socket_;
    std::shared_ptr<Watchdog> watchdog_;
    std::optional<ssl::context> context_;
    std::optional<ssl::stream<Socket&>> tls_;
    std::array<char, 65536> chunk_;
    ReceiveBuffer buffer_;
};

MailConnection::MailConnection(Executor io, Clock& clock, std::string host, int port, ServerConfig::Security security)
    : stream_(std::make_shared<Stream>(io, clock, std::move(host), port, security)) {}

MailConnection::~MailConnection() {
    close();
}

const std::string& MailConnection::host() const {
    return stream_->host();
}

Async<std::string> MailConnection::readLine(Duration timeout) {
    const Bytes line = co_await readLineData(timeout);
    co_return text::repairedUTF8(line);
}

Async<Bytes> MailConnection::readLineData(Duration timeout) {
    Bytes line;
    co_await appendLine(line, timeout);
    co_return line;
}

Async<Bytes> MailConnection::readBytes(std::int64_t count, Duration timeout) {
    Bytes bytes;
    auto missing = static_cast<std::size_t>(std::max<std::int64_t>(count, 0));
    while (missing > 0) missing -= co_await appendBytes(bytes, missing, timeout);
    co_return bytes;
}

Async<void> MailConnection::appendLine(Bytes& out, Duration timeout, std::size_t limit) {
    const std::shared_ptr<Stream> stream = stream_;
    ReceiveBuffer& buffer = stream->buffer();
    std::optional<BytesView> line = buffer.line();
    while (!line) {
        if (buffer.unread().size() > limit) throw MailConnectionError::tooMuch(stream->host());
        co_await stream->fill(timeout);
        line = buffer.line();
    }
    if (line->size() > limit) throw MailConnectionError::tooMuch(stream->host());
    out.append(*line);
    buffer.consume(line->size() + 2);
}

Async<std::size_t> MailConnection::appendBytes(Bytes& out, std::size_t limit, Duration timeout) {
    const std::shared_ptr<Stream> stream = stream_;
    ReceiveBuffer& buffer = stream->buffer();
    if (limit > 0 && buffer.unread().empty()) co_await stream->fill(timeout);
    const BytesView taken = buffer.unread().substr(0, limit);
    out.append(taken);
    buffer.consume(taken.size());
    co_return taken.size();
}

Async<void> MailConnection::write(Bytes bytes) {
    const std::shared_ptr<Stream> stream = stream_;
    co_await stream->send(std::move(bytes));
}

void MailConnection::startTLS() {
    stream_->startTLS();
}

void MailConnection::close() {
    stream_->close();
}

}
