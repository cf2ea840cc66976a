#include "protocols/NameLookup.h"

#include "base/Flag.h"

#include <arpa/inet.h>
#include <array>
#include <atomic>
#include <boost/asio/error.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/this_coro.hpp>
#include <boost/system/system_error.hpp>
#include <cerrno>
#include <cstring>
#include <memory>
#include <mutex>
#include <netdb.h>
#include <netinet/in.h>
#include <optional>
#include <sys/socket.h>
#include <thread>

namespace velmo::connector {

namespace asio = boost::asio;
using Error = boost::system::error_code;

namespace {

std::atomic<int> underWay = 0;

/// What the thread and the one who waits have in common. The thread may outlive everything else.
struct Shared {
    std::mutex mutex;
    std::function<void(LookupResult)> deliver; ///< none when nobody waits any more
};

/// However the wait ends.
class Abandoning {
  public:
    explicit Abandoning(std::shared_ptr<Shared> shared) : shared_(std::move(shared)) {}
    ~Abandoning() {
        const std::scoped_lock lock(shared_->mutex);
        shared_->deliver = nullptr;
    }
    Abandoning(const Abandoning&) = delete;
    Abandoning& operator=(const Abandoning&) = delete;

  private:
    std::shared_ptr<Shared> shared_;
};

/// What the one who waits has alone; its executor is the only one that touches it.
struct Answer {
    explicit Answer(const Executor& executor) : arrived(executor) {}

    Flag arrived;
    std::optional<LookupResult> result;
};

void start(const std::shared_ptr<Shared>& shared, std::string host, int port, Lookup lookup) {
    if (++underWay > mostLookups) {
        --underWay;
        throw boost::system::system_error(asio::error::host_not_found_try_again);
    }
    const std::shared_ptr<void> ended(nullptr, [](void*) { --underWay; });
    std::thread([shared, ended, host = std::move(host), port, lookup = std::move(lookup)] {
        LookupResult result = lookup(host, port);
        const std::scoped_lock lock(shared->mutex);
        if (shared->deliver) shared->deliver(std::move(result));
    }).detach();
}

Error errorOf(int code) {
    switch (code) {
    case EAI_AGAIN: return asio::error::host_not_found_try_again;
    case EAI_NONAME:
    case EAI_NODATA:
    case EAI_ADDRFAMILY: return asio::error::host_not_found;
    case EAI_MEMORY: return asio::error::no_memory;
    case EAI_SYSTEM: return {errno, boost::system::system_category()};
    default: return asio::error::no_recovery;
    }
}

std::optional<Endpoint> endpointOf(const sockaddr* address, int port) {
    std::array<char, INET6_ADDRSTRLEN> text{};
    std::array<char, NI_MAXHOST> scoped{};
    if (address->sa_family == AF_INET) {
        sockaddr_in four{};
        std::memcpy(&four, address, sizeof(four));
        if (inet_ntop(AF_INET, &four.sin_addr, text.data(), text.size()) == nullptr) return std::nullopt;
        return Endpoint(text.data(), port);
    }
    // The zone of a link-local address belongs to it.
    if (address->sa_family != AF_INET6 ||
        getnameinfo(address, sizeof(sockaddr_in6), scoped.data(), scoped.size(), nullptr, 0, NI_NUMERICHOST) != 0)
        return std::nullopt;
    return Endpoint(scoped.data(), port);
}

}

LookupResult systemLookup(const std::string& host, int port) {
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_ADDRCONFIG;
    addrinfo* list = nullptr;
    LookupResult result;
    const int code = getaddrinfo(host.c_str(), nullptr, &hints, &list);
    if (code != 0) {
        result.error = errorOf(code);
        return result;
    }
    const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> release(list, freeaddrinfo);
    for (const addrinfo* each = list; each != nullptr; each = each->ai_next)
        if (auto endpoint = endpointOf(each->ai_addr, port)) result.endpoints.push_back(*std::move(endpoint));
    if (result.endpoints.empty()) result.error = asio::error::host_not_found;
    return result;
}

Async<std::vector<Endpoint>> lookUp(std::string host, int port, Lookup lookup) {
    const Executor executor = co_await asio::this_coro::executor;
    const auto answer = std::make_shared<Answer>(executor);
    const auto shared = std::make_shared<Shared>();
    shared->deliver = [executor, answer](LookupResult result) {
        asio::post(executor, [answer, result = std::move(result)]() mutable {
            answer->result = std::move(result);
            answer->arrived.raise();
        });
    };
    const Abandoning abandoning(shared);
    start(shared, std::move(host), port, std::move(lookup));
    while (!answer->result) co_await answer->arrived.wait();
    if (answer->result->error) throw boost::system::system_error(answer->result->error);
    co_return std::move(answer->result->endpoints);
}

}
