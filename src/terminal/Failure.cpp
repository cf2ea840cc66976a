#include "terminal/Failure.h"

#include "base/Localisation.h"
#include "base/Text.h"

namespace velmo {

namespace {

bool isWrongUsage(const std::exception_ptr& error) {
    try {
        std::rethrow_exception(error);
    } catch (const UsageError&) {
        return true;
    } catch (...) {
        return false;
    }
}

}

int tellFailure(const std::exception_ptr& error, Console& console) {
    console.note(isCancellation(error) ? tr("Interrupted.")
                                       : printable(text::repairedUTF8(sentenceOf(error)), Lines::kept));
    return isWrongUsage(error) ? ExitCode::wrongUsage : ExitCode::failed;
}

}
