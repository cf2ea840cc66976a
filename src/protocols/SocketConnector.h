#pragma once

#include "base/Async.h"
#include "base/Clock.h"

#include <boost/asio/ip/tcp.hpp>
#include <chrono>
#include <string>
#include <vector>

/// How a stream finds its server. For sources that work with sockets already.
namespace velmo::connector {

using Endpoint = boost::asio::ip::tcp::endpoint;
using Socket = boost::asio::ip::tcp::socket;

/// How long one address may keep the next one waiting (RFC 8305 §8).
inline constexpr Duration attemptDelay{250};

/// The addresses of a host; a literal address needs no resolver. Ends at once when cancelled, even while the system's
/// resolver hangs. Throws boost::system::system_error. Runs on the caller's executor, which is serial.
Async<std::vector<Endpoint>> resolve(std::string host, int port);

/// IPv6 and IPv4 in turn, IPv6 first; the order within a family stays (RFC 8305 §4).
std::vector<Endpoint> interleaved(const std::vector<Endpoint>& endpoints);

/// The first socket that connects (RFC 8305 §5): the addresses are tried in order, each `attemptDelay` after the one
/// before or as soon as that failed. Throws boost::system::system_error when all have failed.
Async<Socket> connectFirst(Clock& clock, std::vector<Endpoint> endpoints);

}
