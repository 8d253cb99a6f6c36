// One line of the log for a failure.
#include "log/Fail.h"

#include <utility>

namespace tv {

Failure fail(LogBase& log, Cause cause, std::string sentence) {
    log.logError(sentence);
    return Failure(cause, std::move(sentence));
}

}  // namespace tv
