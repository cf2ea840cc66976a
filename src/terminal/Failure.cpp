#include "terminal/Failure.h"

#include "base/Localisation.h"
#include "base/Text.h"
#include "base/UserError.h"

namespace velmo {

int tellFailure(const std::exception_ptr& error, Console& console) {
    console.note(isCancellation(error) ? tr("Interrupted.")
                                       : printable(text::repairedUTF8(sentenceOf(error)), Lines::kept));
    return ExitCode::failed;
}

}
