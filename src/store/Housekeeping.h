#pragma once

#include "platform/Settings.h"
#include "records/ModelContext.h"

namespace velmo {

/// Brings what older versions stored to what this one stores, each step once in the life of the settings, and makes the
/// default labels that are missing. Blocks for the whole store, so it runs on the background executor with a context of
/// its own. Started again after an interruption it ends up the same. Throws what the context and the settings throw.
void keepHouse(ModelContext& context, Settings& settings);

}
