#pragma once

#include "base/Bytes.h"

#include <cstddef>
#include <string>
#include <vector>

namespace velmo {

/// What a server answers to one command (RFC 5321 §4.2).
struct SMTPReply {
    int code = 0;
    /// What follows the code and its separator in each line; UTF-8.
    std::vector<std::string> lines;

    /// The lines with blanks between them.
    std::string text() const;

    friend bool operator==(const SMTPReply&, const SMTPReply&) = default;
};

/// Puts a reply together, line by line. It fails on a line that is none of a reply, and on a reply that goes on beyond
/// all measure; the code is that of the last line.
class SMTPReplyReader {
  public:
    enum class Progress {
        more,     ///< another line follows
        complete, ///< `reply` holds the whole of it
        broken,   ///< the line can't be part of a reply
    };

    /// Of one reply, line ends included.
    static constexpr std::size_t mostBytes = 100'000;
    static constexpr std::size_t mostLines = 1'000;

    /// Takes one line without its CR LF.
    Progress take(BytesView line);

    /// Bytes that the reply may still have.
    std::size_t room() const { return mostBytes - taken_; }

    const SMTPReply& reply() const { return reply_; }

  private:
    SMTPReply reply_;
    std::size_t taken_ = 0;
};

}
