#include "protocols/DotStuffing.h"

#include <cstddef>

namespace velmo {

namespace {

/// Beginnings of lines with a dot that a message may have before the buffer has to grow.
constexpr std::size_t expectedDots = 64;

}

Bytes dotStuffed(BytesView message) {
    Bytes stuffed;
    stuffed.reserve(message.size() + expectedDots);
    std::size_t copied = 0;
    // Dots are looked for, not line ends: encoded attachments are many lines, and hold no dot at all.
    for (std::size_t dot = message.find('.'); dot != BytesView::npos; dot = message.find('.', dot + 1)) {
        if (dot > 0 && message[dot - 1] != '\n') continue;
        stuffed.append(message, copied, dot - copied);
        stuffed += '.';
        copied = dot;
    }
    stuffed.append(message, copied, BytesView::npos);
    return stuffed;
}

}
