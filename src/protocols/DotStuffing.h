#pragma once

#include "base/Bytes.h"

namespace velmo {

/// The message with a further "." before each line that begins with one (RFC 5321 §4.5.2). A line begins at the start
/// and after every LF, be there a CR before it or not.
Bytes dotStuffed(BytesView message);

}
