// Prints what docs/errors.md begins with.
#include "emailsend/ErrorsCommand.h"

#include "advice/Reference.h"
#include "emailsend/ExitCodes.h"
#include "emailsend/Process.h"

namespace emailsend {

int runErrors(const std::vector<std::string>& words) {
    const bool known = words.empty() || words.front() == "--help";
    if (!known) printError("emailsend: what is meant?\n");
    const std::string usage =
        "emailsend errors: all that can go wrong, what it means and what to change, as a table for "
        "docs/errors.md.\n";
    printOut(words.empty() ? tv::advice::referenceText() : usage);
    return known ? kAccepted : kUsageError;
}

}  // namespace emailsend
