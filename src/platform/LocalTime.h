#pragma once

#include "base/Date.h"

namespace velmo {

/// What the machine's time zone shows at that moment.
CivilTime localTime(Date date);

}
