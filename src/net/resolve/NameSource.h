// Where the names of one call come from, in place of what the system was told. A CallContext points
// to it.
#pragma once

#include <string>
#include <vector>

#include "base/NameServer.h"

namespace tv {

struct NameSource {
    std::vector<NameServer> servers;  // nobody else is asked; empty: as without a source
    std::string hostsPath;            // empty: the system's hosts file
    // Against what servers prove their names; as in TlsChannelSettings.
    std::string trustAnchorsFile;
    std::string furtherAnchorsFile;

    // Stands before what is learnt from these servers, which is for nobody who would not have asked
    // them; empty where there are none.
    std::string word() const {
        std::string word;
        for (const NameServer& server : servers) {
            word += toText(server) + ' ';
        }
        return word.empty() ? word : word + trustAnchorsFile + ' ' + furtherAnchorsFile + ' ';
    }
};

}  // namespace tv
