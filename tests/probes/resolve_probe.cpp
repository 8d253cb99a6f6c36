// Resolves names as a connect does and says what came of it: one JSON object per name.
//
//     resolve_probe [timeout=MS] [tls=1] [six=1] NAME...
//
//     timeout=MS   for each name; 0: no limit
//     tls=1        asks name servers over TLS only
//     six=1        through the system's resolver, IPv6 first
#include <cstdlib>
#include <iostream>
#include <string>

#include "log/tvLogger.h"
#include "net/resolve/Resolver.h"
#include "net/resolve/ResolverState.h"
#include "platform/SysClock.h"
#include "tests/probes/JsonText.h"

namespace tv {
namespace {

using test::quoted;

void resolve(const std::string& name, uint32_t timeoutMs, bool six) {
    _tvLogger log;
    CallContext call{log};
    std::vector<plat::IpAddress> found;
    const Deadline deadline = timeoutMs ? Deadline(timeoutMs) : Deadline::unlimited(3600000);
    const uint64_t start = plat::sysClock().tickMs();
    const Failure failure = six ? getAddressInfo(call, name, true, deadline, found)
                                : dnsLookup(call, name, deadline, found);
    const uint64_t ms = plat::sysClock().tickMs() - start;
    std::string list, text;
    for (const plat::IpAddress& address : found) {
        list += (list.empty() ? "" : ", ") + quoted(plat::toText(address));
    }
    log.getText(text);
    std::cout << "{\"ok\": " << (failure ? "false" : "true") << ", \"found\": [" << list
              << "], \"reason\": " << static_cast<int>(failure.cause()) << ", \"ms\": " << ms
              << ", \"log\": " << quoted(text) << "}" << std::endl;
}

}  // namespace
}  // namespace tv

int main(int argc, char** argv) {
    uint32_t timeoutMs = 20000;
    bool six = false;
    for (int i = 1; i < argc; ++i) {
        const std::string word = argv[i];
        if (word.rfind("timeout=", 0) == 0) {
            timeoutMs = static_cast<uint32_t>(std::atoi(word.c_str() + 8));
        } else if (word == "tls=1") {
            tv::resolverState().requireTls = true;
        } else if (word == "six=1") {
            six = true;
        } else {
            tv::resolve(word, timeoutMs, six);
        }
    }
    return 0;
}
