#pragma once

#include "base/Bytes.h"
#include "base/Date.h"

namespace velmo {

/// The message with its Date field moved by `shift`, in the zone in which it stands. The dates of a calendar that is
/// a part of it move by whole days, so that an event keeps its time of day. Lengths of lines may change.
Bytes withMovedDates(BytesView source, Duration shift);

}
