#include "terminal/Frames.h"

#include <algorithm>
#include <cstdint>
#include <utility>

namespace velmo {

namespace {

constexpr std::size_t headSize = 5;

void putLength(Bytes& bytes, std::size_t position, std::size_t length) {
    for (std::size_t i = 0; i < 4; ++i)
        bytes[position + i] = static_cast<char>(static_cast<unsigned char>(length >> (8 * (3 - i))));
}

std::size_t lengthAt(BytesView bytes, std::size_t position) {
    std::uint32_t length = 0;
    for (std::size_t i = 0; i < 4; ++i) length = length << 8 | static_cast<unsigned char>(bytes[position + i]);
    return length;
}

/// Only the bytes of a stream mean the same in one frame and in two.
bool isStream(FrameType type) {
    return type == FrameType::output || type == FrameType::error;
}

}

void appendFrame(Bytes& to, FrameType type, BytesView payload) {
    const std::size_t start = to.size();
    to += static_cast<char>(type);
    to.append(4, '\0');
    putLength(to, start + 1, payload.size());
    to += payload;
}

void FrameReader::append(BytesView bytes) {
    buffer_.erase(0, std::exchange(used_, 0));
    buffer_ += bytes;
}

std::optional<Frame> FrameReader::next() {
    const BytesView rest = BytesView(buffer_).substr(used_);
    if (isBroken_ || rest.size() < headSize) return std::nullopt;
    const std::size_t length = lengthAt(rest, 1);
    isBroken_ = length > longest_;
    if (isBroken_ || rest.size() - headSize < length) return std::nullopt;
    used_ += headSize + length;
    return Frame(static_cast<FrameType>(rest[0]), Bytes(rest.substr(headSize, length)));
}

void FrameQueue::append(FrameType type, BytesView payload) {
    if (!isStream(type)) {
        startFrame(type, payload);
        return;
    }
    while (!payload.empty()) {
        if (!hasRoom(type)) startFrame(type, {});
        const std::size_t used = lengthAt(bytes_, *last_ + 1);
        const std::size_t count = std::min(payload.size(), longestOutputFrame - used);
        bytes_ += payload.substr(0, count);
        putLength(bytes_, *last_ + 1, used + count);
        payload.remove_prefix(count);
    }
}

bool FrameQueue::hasRoom(FrameType type) const {
    return last_ && bytes_[*last_] == static_cast<char>(type) && lengthAt(bytes_, *last_ + 1) < longestOutputFrame;
}

void FrameQueue::startFrame(FrameType type, BytesView payload) {
    last_ = bytes_.size();
    appendFrame(bytes_, type, payload);
}

Bytes FrameQueue::take() {
    last_.reset();
    return std::exchange(bytes_, {});
}

}
