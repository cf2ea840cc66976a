#include "platform/NetworkPath.h"

#include "base/Task.h"

#include <array>
#include <boost/asio/as_tuple.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <ifaddrs.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace velmo {

namespace asio = boost::asio;

namespace {

bool isRoutable(const sockaddr& address) {
    if (address.sa_family == AF_INET) {
        const auto& four = reinterpret_cast<const sockaddr_in&>(address);
        return (ntohl(four.sin_addr.s_addr) & 0xFFFF0000U) != 0xA9FE0000U;
    }
    if (address.sa_family == AF_INET6) {
        const auto& six = reinterpret_cast<const sockaddr_in6&>(address);
        return !IN6_IS_ADDR_LINKLOCAL(&six.sin6_addr);
    }
    return false;
}

bool isUsable(const ifaddrs& entry) {
    constexpr unsigned working = IFF_UP | IFF_RUNNING;
    return (entry.ifa_flags & working) == working && !(entry.ifa_flags & IFF_LOOPBACK) && entry.ifa_addr &&
           isRoutable(*entry.ifa_addr);
}

bool hasUsablePath() {
    ifaddrs* raw = nullptr;
    if (getifaddrs(&raw) != 0) return true;
    const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> list(raw, freeifaddrs);
    for (const ifaddrs* entry = list.get(); entry; entry = entry->ifa_next) {
        if (isUsable(*entry)) return true;
    }
    return false;
}

/// A socket that becomes readable when links, addresses or routes change; -1 where there is none.
int openNotices() {
    const int socket = ::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE);
    if (socket < 0) return -1;
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    address.nl_groups = RTMGRP_LINK | RTMGRP_IPV4_IFADDR | RTMGRP_IPV6_IFADDR | RTMGRP_IPV4_ROUTE | RTMGRP_IPV6_ROUTE;
    if (bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) return socket;
    ::close(socket);
    return -1;
}

/// What the notices say does not matter: the state is looked up afterwards.
void drain(int socket) {
    std::array<char, 16384> ignored;
    // Also past ENOBUFS, which says that notices were lost.
    for (int i = 0; i < 64; ++i) {
        if (recv(socket, ignored.data(), ignored.size(), 0) < 0 && errno != ENOBUFS && errno != EINTR) return;
    }
}

class SystemNetworkPath final : public NetworkPath {
  public:
    explicit SystemNetworkPath(const Executor& io) : io_(io) {}

    void start(Handler handler) override {
        watch_ = Task(io_, [handler = std::move(handler)] { return watch(handler); });
    }

  private:
    static Async<void> watch(const Handler& handler) {
        const int socket = openNotices();
        handler(socket < 0 || hasUsablePath());
        if (socket < 0) co_return;
        asio::posix::stream_descriptor notices(co_await asio::this_coro::executor, socket);
        for (;;) {
            const auto [error] = co_await notices.async_wait(asio::posix::stream_descriptor::wait_read,
                                                             asio::as_tuple(asio::use_awaitable));
            if (error) co_return;
            drain(socket);
            handler(hasUsablePath());
        }
    }

    Executor io_;
    Task watch_;
};

}

std::unique_ptr<NetworkPath> systemNetworkPath(const Executor& io) {
    return std::make_unique<SystemNetworkPath>(io);
}

}
