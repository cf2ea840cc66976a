#pragma once

#include "base/Async.h"
#include "base/Clock.h"
#include "platform/FileDescriptor.h"

#include <string>
#include <vector>

/// How a stream finds its server.
namespace velmo::connector {

/// Where a TCP server may listen.
struct Endpoint {
    Endpoint(std::string address_, int port_) : address(std::move(address_)), port(port_) {}

    bool isIPv6() const { return address.find(':') != std::string::npos; }

    /// Numeric.
    std::string address;
    int port;

    friend bool operator==(const Endpoint&, const Endpoint&) = default;
};

/// How long one address may keep the next one waiting (RFC 8305 §8).
inline constexpr Duration attemptDelay{250};

/// The addresses of a host; a numeric one needs no resolver. Ends at once when cancelled, even while the system's
/// resolver hangs. Throws boost::system::system_error. Runs on the caller's executor, which is serial.
Async<std::vector<Endpoint>> resolve(std::string host, int port);

/// IPv6 and IPv4 in turn, IPv6 first; the order within a family stays (RFC 8305 §4).
std::vector<Endpoint> interleaved(const std::vector<Endpoint>& endpoints);

/// The first socket that connects (RFC 8305 §5): the addresses are tried in order, each `attemptDelay` after the one
/// before or as soon as that failed. Throws boost::system::system_error when all have failed.
Async<FileDescriptor> connectFirst(Clock& clock, std::vector<Endpoint> endpoints);

}
