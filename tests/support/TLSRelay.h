#pragma once

#include "protocols/ServerConfig.h"
#include "support/FaultProxy.h"

#include <cstddef>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace velmo::test {

/// A relay on "localhost" at which TLS ends and begins anew. So a fault has its place in the conversation itself, byte
/// by byte, and what went through is known.
class TLSRelay {
  public:
    using Fault = FaultProxy::Fault;

    /// What has gone through one connection.
    struct Passage {
        std::string toServer, toClient;
        Fault fault; ///< what was meant for it
        bool hasStruck = false;

        std::string& carried(Fault::Direction direction) {
            return direction == Fault::Direction::toServer ? toServer : toClient;
        }
    };

    /// Listens when this returns. Shows the certificate of a file with the key beside it, "NAME.pem" and "NAME.key".
    TLSRelay(ServerConfig server, const std::filesystem::path& certificate);
    ~TLSRelay();
    TLSRelay(const TLSRelay&) = delete;
    TLSRelay& operator=(const TLSRelay&) = delete;

    int port() const;

    /// The faults of the connections to come, one each, in the order in which they come; those after them work. None
    /// of them slices; what is sent into a stalled direction is lost.
    void plan(std::vector<Fault> faults);

    /// All connections so far, in the order in which they came.
    std::vector<Passage> passages() const;

    /// How many stand still and have not been closed by anybody.
    std::size_t stalled() const;

    struct State;

  private:
    std::shared_ptr<State> state_;
};

}
