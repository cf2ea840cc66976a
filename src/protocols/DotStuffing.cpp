#include "protocols/DotStuffing.h"

#include <cstddef>

namespace velmo {

namespace {

/// Calls `visit` with the position of each dot that begins a line. Dots are looked for, not line ends: encoded
/// attachments are many lines, and hold no dot at all.
template <class Visit>
void forEachLeadingDot(BytesView message, Visit visit) {
    for (std::size_t dot = message.find('.'); dot != BytesView::npos; dot = message.find('.', dot)) {
        if (dot == 0 || message[dot - 1] == '\n') visit(dot);
        // The rest of a row of dots, as in tables of contents.
        while (dot < message.size() && message[dot] == '.') ++dot;
    }
}

}

Bytes dotStuffed(BytesView message) {
    // Counted first, since to look twice costs less than to move a large message into a larger buffer.
    std::size_t count = 0;
    forEachLeadingDot(message, [&](std::size_t) { ++count; });
    Bytes stuffed;
    stuffed.reserve(message.size() + count);
    std::size_t copied = 0;
    forEachLeadingDot(message, [&](std::size_t dot) {
        stuffed.append(message, copied, dot - copied);
        stuffed += '.';
        copied = dot;
    });
    stuffed.append(message, copied, BytesView::npos);
    return stuffed;
}

}
