#pragma once

#include "store/Troubles.h"
#include "terminal/Session.h"

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

namespace velmo {

/// Says on standard error what failed, and no command has said yet; but for what the text `told` says anyway.
void tellTroubles(Session& session, const std::string& told = {});

/// The lines of `status` about what stands: the number of each, its time and account, what failed, and how to dismiss
/// it.
std::vector<std::string> troubleLines(Session& session);

/// What stands, as `--json` shows it.
nlohmann::json jsonOfTroubles(Session& session);

/// Dismisses the one of this number, or all of them for "all". Throws CommandError when none has it.
void dismissTrouble(Session& session, const std::string& number);

}
