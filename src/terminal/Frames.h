#pragma once

#include "base/Bytes.h"

#include <cstddef>
#include <optional>

namespace velmo {

/// What passes between `velmo` and the running application: a type of one octet, the length of the payload as 32 bits
/// in network order, and the payload.
enum class FrameType : char {
    // From the client: one of the first two, then answers to what is asked.
    command = 'C',    ///< a CommandRequest
    activate = 'A',   ///< the person started the application again; no payload
    answer = 'w',     ///< the text that was asked for
    noAnswer = 'n',   ///< there is nobody to ask
    editFailed = 'f', ///< instead of an edited text: the sentence that says why there is none

    // From the application: `declined`; or `taken`, any number of the others, and `end`.
    declined = 'd',   ///< the command has nothing to do with what is open here; nothing of it has happened
    taken = 't',      ///< the request is understood, and is carried out from here on
    output = 'o',     ///< bytes for standard output
    error = 'e',      ///< bytes for standard error
    progress = 'p',   ///< the text of the progress line
    askSecret = 's',  ///< asks for a text that is not shown; the payload is the prompt
    askLine = 'l',    ///< asks for the next line of standard input
    editText = 'v',   ///< asks to have a text edited; the payload is the text as it stands
    textIsSafe = 'k', ///< what was edited is stored elsewhere now, or not wanted; no payload
    end = 'x'         ///< the exit code in decimal digits
};

struct Frame {
    Frame(FrameType type_, Bytes payload_) : type(type_), payload(std::move(payload_)) {}

    FrameType type;
    Bytes payload;
};

/// Longest payloads.
inline constexpr std::size_t longestRequest = 1 << 20, longestAnswer = 1 << 20, longestOutputFrame = 1 << 16;

void appendFrame(Bytes& to, FrameType type, BytesView payload);

/// Cuts frames out of a stream. Holds no more than has arrived.
class FrameReader {
  public:
    explicit FrameReader(std::size_t longestPayload) : longest_(longestPayload) {}

    void append(BytesView bytes);

    /// The next whole frame, whatever its type; absent while there is none.
    std::optional<Frame> next();

    /// True once a longer payload than allowed was announced: nothing follows any more.
    bool isBroken() const { return isBroken_; }

  private:
    std::size_t longest_;
    Bytes buffer_;
    std::size_t used_ = 0; ///< how much of it has been given
    bool isBroken_ = false;
};

/// What is still to be sent. Bytes of a stream that follow each other share frames.
class FrameQueue {
  public:
    /// Bytes of a stream may be of any length, and then become several frames.
    void append(FrameType type, BytesView payload);

    std::size_t size() const { return bytes_.size(); }
    bool isEmpty() const { return bytes_.empty(); }

    /// Gives what there is, and is empty then.
    Bytes take();

    void clear() { static_cast<void>(take()); }

  private:
    bool hasRoom(FrameType type) const;
    void startFrame(FrameType type, BytesView payload);

    Bytes bytes_;
    std::optional<std::size_t> last_; ///< where the last frame begins
};

}
