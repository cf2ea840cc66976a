#pragma once

#include "protocols/ServerConfig.h"

#include <cstddef>
#include <string>
#include <vector>

namespace velmo::bench {

/// The bare wire: sends these IMAP command lines one after another over TLS, and throws the answers away. Signs in with
/// AUTHENTICATE PLAIN first. Gives the number of bytes that the server sent. Blocks; throws std::runtime_error.
std::size_t playBare(const ServerConfig& server, const std::string& user, const std::string& password,
                     const std::vector<std::string>& commands);

}
