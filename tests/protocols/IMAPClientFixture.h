#pragma once

#include "base/ManualClock.h"
#include "base/Runtime.h"
#include "base/Task.h"
#include "base/UserError.h"
#include "protocols/IMAPClient.h"
#include "support/Eventually.h"
#include "support/ScriptedServer.h"

#include <chrono>
#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <string>

namespace velmo::test {

/// A client for a scripted server on this machine.
struct IMAPClientRig {
    explicit IMAPClientRig(ScriptedServer& server, Clock& clock,
                           ServerConfig::Security security = ServerConfig::Security::tls,
                           MailCredential credential = MailCredential::password("ann", "secret"))
        : client(std::make_shared<IMAPClient>(makeStrand(runtime.executors().io), clock,
                                              ServerConfig("localhost", server.port(), security),
                                              std::move(credential))) {}

    /// What an operation fails with; absent when it succeeds.
    template <class F>
    std::optional<IMAPError> failure(F operation) {
        try {
            runtime.run(std::move(operation));
            return std::nullopt;
        } catch (const IMAPError& error) {
            return error;
        }
    }

    Runtime runtime;
    std::shared_ptr<IMAPClient> client;
};

/// The start of a session with a password, up to the tag "b2"; the server has these extra capabilities.
inline std::string signInScript(const std::string& capabilities = "") {
    return "S: * OK [CAPABILITY IMAP4rev1 AUTH=PLAIN SASL-IR] hello\n"
           "C: b1 AUTHENTICATE PLAIN AGFubgBzZWNyZXQ=\n"
           "S: b1 OK in\n"
           "C: b2 CAPABILITY\n"
           "S: * CAPABILITY IMAP4rev1 " +
           capabilities + "\nS: b2 OK done\n";
}

inline ScriptedServer::Options tlsServer(Cut cut = {}) {
    return {ScriptedServer::Security::tls, cut};
}

}
