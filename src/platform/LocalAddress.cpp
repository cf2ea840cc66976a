#include "platform/LocalAddress.h"

#include <arpa/inet.h>
#include <array>
#include <ifaddrs.h>
#include <memory>
#include <net/if.h>
#include <netinet/in.h>

namespace velmo {

namespace {

bool isCandidate(const ifaddrs& entry) {
    return (entry.ifa_flags & IFF_UP) != 0 && (entry.ifa_flags & IFF_LOOPBACK) == 0 && entry.ifa_addr != nullptr &&
           entry.ifa_addr->sa_family == AF_INET;
}

}

std::optional<std::string> localIPv4Address() {
    ifaddrs* raw = nullptr;
    if (getifaddrs(&raw) != 0) return std::nullopt;
    const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> list(raw, freeifaddrs);
    for (const ifaddrs* entry = list.get(); entry != nullptr; entry = entry->ifa_next) {
        if (!isCandidate(*entry)) continue;
        std::array<char, INET_ADDRSTRLEN> text{};
        const auto* address = reinterpret_cast<const sockaddr_in*>(entry->ifa_addr);
        if (inet_ntop(AF_INET, &address->sin_addr, text.data(), text.size()) != nullptr) return text.data();
    }
    return std::nullopt;
}

}
