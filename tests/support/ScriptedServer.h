#pragma once

#include "support/TestCertificates.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace velmo::test {

/// How a server cuts what it sends.
struct Cut {
    enum class Kind { whole, byteByByte, random };
    Kind kind = Kind::whole;
    std::uint32_t seed = 0;
};

/// Calls `test` with each way of cutting, and names it in the failures of the test.
void forEachCut(const std::function<void(Cut)>& test);

/// A line-based server on 127.0.0.1 that plays a transcript over TCP and checks what the client sends.
///
/// A transcript has one step a line; blank lines, indentation and lines that begin with '#' mean nothing:
///
///     S: text     sends the line with CR LF
///     S> text     sends without a line end; \r \n \t \0 \\ \xNN are understood
///     C: text     expects exactly this line with CR LF
///     C~ text     expects a line, where each '*' stands for anything
///     C> 12       expects so many bytes, whatever they are
///     TLS         turns to TLS, as after STARTTLS
///     PAUSE       waits until the test calls `proceed`
///     CLOSE       ends the connection in good order; RESET breaks it off
///     ---         what follows is for the next connection
///
/// Connections play their parts in the order in which they are accepted, and may run side by side. After the last
/// step the server waits for the client to leave. It ends the connection when the client says anything unexpected.
class ScriptedServer {
  public:
    enum class Security { plain, tls };

    struct Options {
        Options() {}
        Options(Security security_, Cut cut_ = {}, Certificate certificate_ = Certificate::good)
            : security(security_), cut(cut_), certificate(certificate_) {}
        Options(Cut cut_) : cut(cut_) {}

        Security security = Security::plain;
        Cut cut;
        Certificate certificate = Certificate::good;
    };

    /// Listens when this returns. The process trusts the tests' authority from then on.
    explicit ScriptedServer(std::string_view transcript, Options options = {});
    ~ScriptedServer();
    ScriptedServer(const ScriptedServer&) = delete;
    ScriptedServer& operator=(const ScriptedServer&) = delete;

    int port() const;

    /// Lets the first connection that is at a PAUSE go on, or the next one that comes to one.
    void proceed();

    /// Waits until every connection has played its part to the end, or a few seconds. Empty when all went as told,
    /// otherwise what did not.
    std::string verdict();

    /// All that clients have sent, decrypted, in the order of arrival.
    std::string received() const;

    /// Number of connections accepted.
    int connections() const;

    /// Number of connections that the client has closed.
    int closedByClient() const;

    struct State;

  private:
    std::shared_ptr<State> state_;
};

}
