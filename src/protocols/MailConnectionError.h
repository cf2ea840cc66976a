#pragma once

#include "base/UserError.h"

#include <string>

namespace velmo {

/// Why a stream to a mail server is of no more use. Told by host only, never with the system's own words.
class MailConnectionError : public UserError {
  public:
    enum class Kind {
        cannotConnect, ///< name, route, refusal, TLS, time-out or reset
        closed,        ///< the server ended the stream in good order
        tooMuch,       ///< the server sent more than is taken from one, and the stream was given up
    };

    static MailConnectionError cannotConnect(std::string host);
    static MailConnectionError closed(std::string host);
    static MailConnectionError tooMuch(std::string host);

    Kind kind() const { return kind_; }
    const std::string& host() const { return host_; }

    friend bool operator==(const MailConnectionError& a, const MailConnectionError& b) {
        return a.kind_ == b.kind_ && a.host_ == b.host_;
    }

  private:
    MailConnectionError(Kind kind, std::string host, std::string sentence);

    Kind kind_;
    std::string host_;
};

}
