#pragma once

#include "base/Async.h"
#include "protocols/SocketConnector.h"

#include <boost/system/error_code.hpp>
#include <functional>
#include <string>
#include <vector>

namespace velmo::connector {

/// What the system's resolver gives, however long that takes.
struct LookupResult {
    boost::system::error_code error;
    std::vector<Endpoint> endpoints;
};
using Lookup = std::function<LookupResult(const std::string& host, int port)>;

/// By getaddrinfo(3). Blocks.
LookupResult systemLookup(const std::string& host, int port);

/// How many look-ups may be under way; one more fails at once.
inline constexpr int mostLookups = 32;

/// Runs a look-up on a thread of its own, which nobody waits for once this is cancelled: one that hangs holds up
/// neither another nor the end of the program. Throws boost::system::system_error. Runs on the caller's executor, which
/// is serial.
Async<std::vector<Endpoint>> lookUp(std::string host, int port, Lookup lookup);

}
