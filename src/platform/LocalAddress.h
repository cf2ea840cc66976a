#pragma once

#include <optional>
#include <string>

namespace velmo {

/// The IPv4 address of this machine in dotted form: that of the first interface which is up and no loopback. Absent
/// when none has one. Does not block; may be called from any thread.
std::optional<std::string> localIPv4Address();

}
