// A long step in a thread of its own, while the first thread shows that it goes on and listens for
// Ctrl-C. The plug-in tells nothing of how far it is and cannot be asked to stop.
#pragma once

#include <chrono>
#include <functional>
#include <string>

namespace emailsend {

// False if the user stopped it, or it took longer than the limit (0: none); the step then still
// runs, and the process must end by endNow. On a terminal, what and the seconds so far stand in one
// line that is wiped at the end.
bool runWatched(const std::string& what, std::function<void()> step,
                std::chrono::milliseconds limit = {});

}  // namespace emailsend
