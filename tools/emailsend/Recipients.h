// Who was left out of a send that succeeded. The exports do not tell; the library's log of sends,
// which a settings file asks for, does.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace emailsend {

// Made before Initialise. Where no settings file counts, one of our own asks for the log as long as
// this lives; where one counts that asks for none, nothing is learnt.
class RecipientWatch {
public:
    // library: the path of the loaded plug-in, beside which a settings file would lie.
    explicit RecipientWatch(const std::string& library);
    ~RecipientWatch() { tidyUp(); }
    RecipientWatch(const RecipientWatch&) = delete;
    RecipientWatch& operator=(const RecipientWatch&) = delete;

    // Addresses that the server refused since, each with its code.
    std::vector<std::pair<std::string, int>> refused() const;
    // Takes away what was made; also for who ends the process.
    void tidyUp();

private:
    void makeOwn();

    std::string log_;  // empty: none
    uint64_t begin_ = 0;
    std::string folder_;  // our own, with all in it
};

// Of a line of that log.
std::vector<std::pair<std::string, int>> refusedIn(const std::string& line);

}  // namespace emailsend
