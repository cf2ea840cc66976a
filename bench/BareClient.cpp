#include "bench/BareClient.h"

#include "base/Text.h"

#include <array>
#include <memory>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/ssl.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

namespace velmo::bench {

namespace {

/// A blocking TLS stream, with what was read and not used yet.
class Wire {
  public:
    explicit Wire(const ServerConfig& server) : context_(SSL_CTX_new(TLS_client_method()), SSL_CTX_free) {
        SSL_CTX_set_default_verify_paths(context_.get());
        SSL_CTX_set_verify(context_.get(), SSL_VERIFY_PEER, nullptr);
        connectTo(server);
        ssl_.reset(SSL_new(context_.get()));
        SSL_set1_host(ssl_.get(), server.host.c_str());
        SSL_set_fd(ssl_.get(), socket_);
        if (SSL_connect(ssl_.get()) != 1) throw std::runtime_error("no TLS");
    }
    ~Wire() {
        ssl_.reset();
        if (socket_ >= 0) close(socket_);
    }
    Wire(const Wire&) = delete;
    Wire& operator=(const Wire&) = delete;

    void send(const std::string& line) {
        if (SSL_write(ssl_.get(), line.data(), static_cast<int>(line.size())) <= 0)
            throw std::runtime_error("no write");
    }

    /// Reads until a line begins with `start`. Keeps no more than the beginning of the present line.
    void skipTo(const std::string& start) {
        while (!lineBegins(start)) {
            const int count = SSL_read(ssl_.get(), block_.data(), static_cast<int>(block_.size()));
            if (count <= 0) throw std::runtime_error("the server left");
            received += static_cast<std::size_t>(count);
            fill_ = static_cast<std::size_t>(count);
            used_ = 0;
        }
    }

    std::size_t received = 0;

  private:
    /// Walks over what is in the block; true when a line with that start has ended.
    bool lineBegins(const std::string& start) {
        while (used_ < fill_) {
            const std::string_view rest(block_.data() + used_, fill_ - used_);
            const auto end = rest.find('\n');
            if (beginning_.size() < start.size())
                beginning_ += rest.substr(0, std::min(end, start.size() - beginning_.size()));
            if (end == std::string_view::npos) {
                used_ = fill_;
                return false;
            }
            used_ += end + 1;
            const bool found = beginning_ == start;
            beginning_.clear();
            if (found) return true;
        }
        return false;
    }

    void connectTo(const ServerConfig& server) {
        addrinfo hints{};
        hints.ai_socktype = SOCK_STREAM;
        addrinfo* found = nullptr;
        getaddrinfo(server.host.c_str(), std::to_string(server.port).c_str(), &hints, &found);
        for (const addrinfo* address = found; address != nullptr && socket_ < 0; address = address->ai_next) {
            socket_ = socket(address->ai_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
            if (connect(socket_, address->ai_addr, address->ai_addrlen) == 0) break;
            close(socket_);
            socket_ = -1;
        }
        freeaddrinfo(found);
        if (socket_ < 0) throw std::runtime_error("no connection");
        const int on = 1;
        setsockopt(socket_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    }

    std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> context_;
    std::unique_ptr<SSL, decltype(&SSL_free)> ssl_{nullptr, SSL_free};
    int socket_ = -1;
    std::array<char, 65536> block_{};
    std::size_t fill_ = 0, used_ = 0;
    std::string beginning_;
};

}

std::size_t playBare(const ServerConfig& server, const std::string& user, const std::string& password,
                     const std::vector<std::string>& commands) {
    Wire wire(server);
    wire.skipTo("* OK");
    wire.send("b1 AUTHENTICATE PLAIN " + text::base64(std::string("\0", 1) + user + std::string("\0", 1) + password) +
              "\r\n");
    wire.skipTo("b1 OK");
    for (const auto& command : commands) {
        wire.send(command + "\r\n");
        wire.skipTo(command.substr(0, command.find(' ') + 1));
    }
    return wire.received;
}

}
