#include "support/ScriptedServer.h"

#include "base/Text.h"

#include <algorithm>
#include <arpa/inet.h>
#include <condition_variable>
#include <csignal>
#include <gtest/gtest.h>
#include <linux/sockios.h>
#include <mutex>
#include <netinet/tcp.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <poll.h>
#include <random>
#include <stdexcept>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace velmo::test {

namespace {

using namespace std::chrono_literals;

/// One line of a transcript.
struct Step {
    enum class Kind { sendLine, sendRaw, expectLine, expectPattern, expectBytes, tls, pause, close, reset };
    Kind kind;
    std::string text;
};

std::string unescaped(std::string_view text) {
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\' || i + 1 == text.size()) {
            out += text[i];
            continue;
        }
        const char c = text[++i];
        if (c == 'x' && i + 2 < text.size()) {
            out += static_cast<char>(text::hexValue(text[i + 1]) * 16 + text::hexValue(text[i + 2]));
            i += 2;
        } else {
            out += c == 'r' ? '\r' : c == 'n' ? '\n' : c == 't' ? '\t' : c == '0' ? '\0' : c;
        }
    }
    return out;
}

Step readStep(std::string_view line) {
    using enum Step::Kind;
    if (line == "TLS") return {tls, {}};
    if (line == "PAUSE") return {pause, {}};
    if (line == "CLOSE") return {close, {}};
    if (line == "RESET") return {reset, {}};
    const std::string_view head = line.substr(0, 2);
    const std::string rest(line.size() > 3 ? line.substr(3) : std::string_view{});
    if (head == "S:") return {sendLine, rest};
    if (head == "S>") return {sendRaw, unescaped(rest)};
    if (head == "C:") return {expectLine, rest};
    if (head == "C~") return {expectPattern, rest};
    if (head == "C>") return {expectBytes, rest};
    throw std::invalid_argument("no step: " + std::string(line));
}

std::vector<std::vector<Step>> readTranscript(std::string_view transcript) {
    std::vector<std::vector<Step>> parts(1);
    for (std::string_view line : text::split(transcript, '\n')) {
        while (!line.empty() && line.front() == ' ') line.remove_prefix(1);
        if (line.empty() || line.front() == '#') continue;
        if (line == "---") {
            parts.emplace_back();
        } else {
            parts.back().push_back(readStep(line));
        }
    }
    return parts;
}

/// '*' stands for any run of characters.
bool matches(std::string_view pattern, std::string_view line) {
    const std::vector<std::string_view> pieces = text::split(pattern, '*');
    if (!line.starts_with(pieces.front())) return false;
    std::size_t at = pieces.front().size();
    for (std::size_t i = 1; i + 1 < pieces.size(); ++i) {
        at = line.find(pieces[i], at);
        if (at == std::string_view::npos) return false;
        at += pieces[i].size();
    }
    return pieces.size() == 1 ? at == line.size()
                              : line.size() >= at + pieces.back().size() && line.ends_with(pieces.back());
}

/// The client went away, or the server is being taken down.
struct Gone {};

}

struct ScriptedServer::State {
    Options options;
    std::vector<std::vector<Step>> parts;
    int listener = -1;
    int port = 0;
    int stop = -1;

    mutable std::mutex mutex;
    std::condition_variable changed;
    std::string received;
    std::string problems;
    std::vector<std::string> waitingFor; ///< by connection; empty once its part has been played
    int accepted = 0;
    int closedByClient = 0;
    int permits = 0;
    bool stopping = false;
    std::vector<std::jthread> threads;

    void problem(const std::string& text) {
        const std::scoped_lock lock(mutex);
        problems += text + "\n";
        changed.notify_all();
    }
};

namespace {

/// One accepted connection, on its own thread.
class Conversation {
  public:
    Conversation(int socket, ScriptedServer::Options options, int stop, std::function<void(std::string_view)> received)
        : socket_(socket), stop_(stop), options_(options), received_(std::move(received)), random_(options.cut.seed) {
        const int on = 1;
        setsockopt(socket_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        // A client that stops half-way must not hold the test for ever.
        const timeval patience{10, 0};
        setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
        setsockopt(socket_, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
    }
    ~Conversation() {
        SSL_free(tls_);
        SSL_CTX_free(context_);
        ::close(socket_);
    }
    Conversation(const Conversation&) = delete;
    Conversation& operator=(const Conversation&) = delete;

    bool startTLS() {
        const Identity& shown = identity(options_.certificate);
        context_ = SSL_CTX_new(TLS_server_method());
        const auto bio = [](const std::string& text) {
            return BIO_new_mem_buf(text.data(), static_cast<int>(text.size()));
        };
        BIO* certificateBIO = bio(shown.certificatePEM);
        BIO* keyBIO = bio(shown.keyPEM);
        X509* certificate = PEM_read_bio_X509(certificateBIO, nullptr, nullptr, nullptr);
        EVP_PKEY* key = PEM_read_bio_PrivateKey(keyBIO, nullptr, nullptr, nullptr);
        SSL_CTX_use_certificate(context_, certificate);
        SSL_CTX_use_PrivateKey(context_, key);
        X509_free(certificate);
        EVP_PKEY_free(key);
        BIO_free(certificateBIO);
        BIO_free(keyBIO);
        tls_ = SSL_new(context_);
        SSL_set_fd(tls_, socket_);
        if (!waitReadable()) return false;
        const int result = SSL_accept(tls_);
        ERR_clear_error();
        if (result == 1) return true;
        SSL_free(tls_);
        tls_ = nullptr;
        return false;
    }

    void send(std::string_view bytes) {
        while (!bytes.empty()) {
            std::size_t piece = bytes.size();
            if (options_.cut.kind == Cut::Kind::byteByByte) piece = 1;
            if (options_.cut.kind == Cut::Kind::random) piece = std::min<std::size_t>(piece, 1 + random_() % 23);
            sendPiece(bytes.substr(0, piece));
            bytes.remove_prefix(piece);
        }
    }

    /// The next line without its CR LF; throws Gone when the client leaves.
    std::string line() {
        for (;;) {
            const std::size_t end = buffer_.find("\r\n");
            if (end != std::string::npos) {
                std::string result = buffer_.substr(0, end);
                buffer_.erase(0, end + 2);
                return result;
            }
            fill();
        }
    }

    void skip(std::size_t count) {
        while (buffer_.size() < count) fill();
        buffer_.erase(0, count);
    }

    /// Waits for the client to leave; gives what it says before.
    std::string rest() {
        try {
            for (;;) fill();
        } catch (const Gone&) {
        }
        return buffer_;
    }

    bool clientClosed() const { return clientClosed_; }

    void finish() {
        if (tls_) SSL_shutdown(tls_);
        shutdown(socket_, SHUT_WR);
    }
    void reset() {
        const linger hard{1, 0};
        setsockopt(socket_, SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
    }

  private:
    bool waitReadable() {
        if (tls_ && SSL_pending(tls_) > 0) return true;
        pollfd fds[2] = {{socket_, POLLIN, 0}, {stop_, POLLIN, 0}};
        return poll(fds, 2, -1) > 0 && fds[1].revents == 0;
    }

    void fill() {
        if (!waitReadable()) throw Gone{};
        char chunk[16384];
        const auto got = tls_ ? SSL_read(tls_, chunk, sizeof chunk) : recv(socket_, chunk, sizeof chunk, 0);
        if (got <= 0) {
            clientClosed_ = true;
            throw Gone{};
        }
        const std::string_view bytes(chunk, static_cast<std::size_t>(got));
        buffer_ += bytes;
        received_(bytes);
    }

    void sendPiece(std::string_view piece) {
        while (!piece.empty()) {
            const auto sent = tls_ ? SSL_write(tls_, piece.data(), static_cast<int>(piece.size()))
                                   : ::send(socket_, piece.data(), piece.size(), MSG_NOSIGNAL);
            if (sent <= 0) {
                clientClosed_ = true;
                throw Gone{};
            }
            piece.remove_prefix(static_cast<std::size_t>(sent));
        }
        if (options_.cut.kind == Cut::Kind::whole) return;
        // Each piece is to arrive by itself.
        int unacknowledged = 1;
        for (int i = 0; i < 1000 && unacknowledged > 0; ++i) ioctl(socket_, SIOCOUTQ, &unacknowledged);
        std::this_thread::yield();
    }

    int socket_;
    int stop_;
    ScriptedServer::Options options_;
    std::function<void(std::string_view)> received_;
    std::minstd_rand random_;
    SSL_CTX* context_ = nullptr;
    SSL* tls_ = nullptr;
    std::string buffer_;
    bool clientClosed_ = false;
};

std::string described(const Step& step) {
    using enum Step::Kind;
    switch (step.kind) {
    case expectLine: return "C: " + step.text;
    case expectPattern: return "C~ " + step.text;
    case expectBytes: return "C> " + step.text;
    case tls: return "TLS";
    case pause: return "PAUSE";
    default: return "S: " + step.text;
    }
}

bool isSend(const Step& step) {
    return step.kind == Step::Kind::sendLine || step.kind == Step::Kind::sendRaw;
}

/// Plays one step that expects something; gives what is wrong with what came.
std::string expect(Conversation& conversation, const Step& step) {
    if (step.kind == Step::Kind::expectBytes) {
        conversation.skip(static_cast<std::size_t>(text::parseUnsigned32(step.text).value_or(0)));
        return {};
    }
    const std::string line = conversation.line();
    const bool fits = step.kind == Step::Kind::expectLine ? line == step.text : matches(step.text, line);
    return fits ? std::string{} : "expected \"" + step.text + "\", got \"" + line + "\"";
}

bool waitForPermit(ScriptedServer::State& state) {
    std::unique_lock lock(state.mutex);
    state.changed.wait(lock, [&] { return state.permits > 0 || state.stopping; });
    if (state.stopping) return false;
    --state.permits;
    return true;
}

void setWaiting(ScriptedServer::State& state, std::size_t part, std::string what) {
    const std::scoped_lock lock(state.mutex);
    state.waitingFor[part] = std::move(what);
    state.changed.notify_all();
}

/// False when the conversation is over.
bool playStep(ScriptedServer::State& state, Conversation& conversation, const Step& step) {
    using enum Step::Kind;
    switch (step.kind) {
    case tls:
        if (conversation.startTLS()) return true;
        state.problem("the TLS handshake failed");
        return false;
    case pause: return waitForPermit(state);
    case close: conversation.finish(); return true;
    case reset: conversation.reset(); return false;
    default: break;
    }
    const std::string wrong = expect(conversation, step);
    if (!wrong.empty()) state.problem(wrong);
    return wrong.empty();
}

void play(ScriptedServer::State& state, Conversation& conversation, std::size_t part) {
    const std::vector<Step>& steps = state.parts[part];
    for (std::size_t i = 0; i < steps.size(); ++i) {
        setWaiting(state, part, described(steps[i]));
        if (!isSend(steps[i])) {
            const bool last = i + 1 == steps.size();
            if (playStep(state, conversation, steps[i])) continue;
            if (last) setWaiting(state, part, {});
            return;
        }
        // Lines that follow each other go out in one piece, or are cut across their ends.
        std::string bytes;
        for (; i < steps.size() && isSend(steps[i]); ++i) {
            bytes += steps[i].text;
            if (steps[i].kind == Step::Kind::sendLine) bytes += "\r\n";
        }
        --i;
        conversation.send(bytes);
    }
    setWaiting(state, part, {});
    const std::string rest = conversation.rest();
    if (!rest.empty()) state.problem("after the end: \"" + rest + "\"");
}

void serve(ScriptedServer::State& state, int socket, std::size_t part) {
    Conversation conversation(socket, state.options, state.stop, [&](std::string_view bytes) {
        const std::scoped_lock lock(state.mutex);
        state.received += bytes;
    });
    try {
        // A refused certificate is the client's good right: the part then simply stays unplayed.
        if (state.options.security == ScriptedServer::Security::plain || conversation.startTLS())
            play(state, conversation, part);
    } catch (const Gone&) {
    }
    const std::scoped_lock lock(state.mutex);
    if (conversation.clientClosed()) ++state.closedByClient;
    state.changed.notify_all();
}

void acceptAll(ScriptedServer::State& state) {
    for (;;) {
        pollfd fds[2] = {{state.listener, POLLIN, 0}, {state.stop, POLLIN, 0}};
        if (poll(fds, 2, -1) <= 0 || fds[1].revents) return;
        const int socket = accept(state.listener, nullptr, nullptr);
        if (socket < 0) continue;
        const std::scoped_lock lock(state.mutex);
        const auto part = static_cast<std::size_t>(state.accepted++);
        if (part < state.parts.size()) {
            state.threads.emplace_back([&state, socket, part] { serve(state, socket, part); });
        } else {
            state.problems += "one connection too many\n";
            ::close(socket);
        }
        state.changed.notify_all();
    }
}

}

void forEachCut(const std::function<void(Cut)>& test) {
    const struct {
        const char* name;
        Cut cut;
    } ways[] = {{"whole", {}},
                {"byte by byte", {Cut::Kind::byteByByte, 0}},
                {"cut at random, seed 1", {Cut::Kind::random, 1}},
                {"cut at random, seed 2", {Cut::Kind::random, 2}}};
    for (const auto& way : ways) {
        SCOPED_TRACE(way.name);
        test(way.cut);
    }
}

ScriptedServer::ScriptedServer(std::string_view transcript, Options options) : state_(std::make_shared<State>()) {
    std::signal(SIGPIPE, SIG_IGN);
    trustTestAuthority();
    identity(options.certificate);
    state_->options = options;
    state_->parts = readTranscript(transcript);
    state_->waitingFor.assign(state_->parts.size(), "a connection");
    state_->stop = eventfd(0, EFD_CLOEXEC);
    state_->listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    if (bind(state_->listener, reinterpret_cast<sockaddr*>(&address), size) != 0 || listen(state_->listener, 16) != 0)
        throw std::runtime_error("can't listen");
    getsockname(state_->listener, reinterpret_cast<sockaddr*>(&address), &size);
    state_->port = ntohs(address.sin_port);
    const std::scoped_lock lock(state_->mutex);
    state_->threads.emplace_back([state = state_.get()] { acceptAll(*state); });
}

ScriptedServer::~ScriptedServer() {
    {
        const std::scoped_lock lock(state_->mutex);
        state_->stopping = true;
        state_->changed.notify_all();
    }
    eventfd_write(state_->stop, 1);
    // The first thread starts the others, so it ends first.
    state_->threads.front().join();
    state_->threads.clear();
    ::close(state_->listener);
    ::close(state_->stop);
}

int ScriptedServer::port() const {
    return state_->port;
}

void ScriptedServer::proceed() {
    const std::scoped_lock lock(state_->mutex);
    ++state_->permits;
    state_->changed.notify_all();
}

std::string ScriptedServer::verdict() {
    std::unique_lock lock(state_->mutex);
    const auto done = [&] {
        return !state_->problems.empty() || std::ranges::all_of(state_->waitingFor, &std::string::empty);
    };
    state_->changed.wait_for(lock, 5s, done);
    std::string result = state_->problems;
    for (const std::string& step : state_->waitingFor) {
        if (!step.empty()) result += "unplayed: " + step + "\n";
    }
    return result;
}

std::string ScriptedServer::received() const {
    const std::scoped_lock lock(state_->mutex);
    return state_->received;
}

int ScriptedServer::connections() const {
    const std::scoped_lock lock(state_->mutex);
    return state_->accepted;
}

int ScriptedServer::closedByClient() const {
    const std::scoped_lock lock(state_->mutex);
    return state_->closedByClient;
}

}
