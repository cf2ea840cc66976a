#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace velmo::test {

/// A relay on 127.0.0.1 in front of a server, which can be told to fail.
class FaultProxy {
  public:
    /// What happens to a connection once it has carried so many bytes in one direction.
    struct Fault {
        enum class Kind {
            none,
            cut,   ///< both sides are closed in good order
            reset, ///< both sides are broken off
            stall, ///< nothing goes on, and nothing is closed
            slice, ///< from there on, one byte at a time
            refuse ///< connections are closed as soon as they are accepted
        };
        enum class Direction { toServer, toClient };

        Fault() {}
        Fault(Kind kind_, Direction direction_ = Direction::toServer, std::int64_t after_ = 0)
            : kind(kind_), direction(direction_), after(after_) {}

        Kind kind = Kind::none;
        Direction direction = Direction::toServer;
        std::int64_t after = 0;
    };

    /// Listens when this returns.
    FaultProxy(std::string host, int port);
    ~FaultProxy();
    FaultProxy(const FaultProxy&) = delete;
    FaultProxy& operator=(const FaultProxy&) = delete;

    int port() const;

    /// For the connections that come from now on. The first of them that reaches the fault uses it up; those after it
    /// work.
    void failOnce(Fault fault);
    /// For all of them, until something else is told.
    void fail(Fault fault);

    /// Whether the fault told last has struck.
    bool hasStruck() const;

    /// Bytes that went in a direction since the last call of `failOnce` or `fail`, over all connections.
    std::int64_t carried(Fault::Direction direction) const;

    /// Breaks off every connection there is.
    void breakAll();

    struct State;

  private:
    std::shared_ptr<State> state_;
};

}
