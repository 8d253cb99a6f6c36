// What a name costs: a look into the cache, a whole look-up of a cached name, and the processor
// time of five seconds in which no name server answers. Beside the C library's resolver, which
// reads its answer from the hosts file.
//     bench_resolver
#include <cstdio>
#include <string>
#include <vector>

#include "Compare.h"
#include "log/tvLogger.h"
#include "net/resolve/NameSource.h"
#include "net/resolve/Resolver.h"
#include "net/resolve/ResolverState.h"
#include "net/stream/SocketLibrary.h"
#include "platform/SysClock.h"
#include "platform/SysSocket.h"

namespace tv::bench {
namespace {

constexpr int kNames = 200;
constexpr uint64_t kStallMs = 5000;
constexpr const char* kSilentServer = "127.77.66.55";

std::string nameOf(int i) {
    return "mail" + std::to_string(i) + ".department.example.test";
}

void fill(ResolverState& state) {
    dns::Reply reply;
    reply.addresses = {*plat::parseIp("192.0.2.1"), *plat::parseIp("192.0.2.2")};
    reply.ttlSeconds = 3600;
    for (int i = 0; i < kNames; ++i) {
        state.keep(nameOf(i), reply, plat::sysClock().tickMs());
    }
}

// Median time of one call in nanoseconds. In batches: on some systems the question for the
// processor time costs more than a call.
double costOf(const Work& work) {
    constexpr int kBatch = 250;
    const Work batch = [&] {
        for (int i = 0; i < kBatch; ++i) {
            work();
        }
    };
    std::array<double, kSlices> costs{};
    for (double& cost : costs) {
        cost = 1e9 / rateOf(batch) / kBatch;
    }
    return median(costs);
}

void printCosts(ResolverState& state) {
    std::vector<plat::IpAddress> found;
    const std::string name = nameOf(kNames / 2);
    const double cache = costOf([&] { state.findInCache(name, plat::sysClock().tickMs(), found); });
    _tvLogger log;
    const double lookUp = costOf([&] {
        CallContext call{log};
        log.clearLog();
        if (dnsLookup(call, name, Deadline(30000), found)) std::puts("The look-up failed.");
    });
    const double peer =
        costOf([&] { plat::sysNet().lookupHost("localhost", plat::AddressFamily::IPv4, found); });
    std::printf("\n| what | ours | C library, localhost | ratio |\n|---|---|---|---|\n");
    std::printf("| look into the cache, of %d names, ns | %.0f | | |\n", kNames, cache);
    std::printf("| whole look-up of a cached name, us | %.2f | %.2f | %.2f |\n", lookUp / 1e3,
                peer / 1e3, lookUp / peer);
}

// A name server that takes everything and says nothing. Its port is 53, which not everybody may
// use.
void printStall() {
    plat::SocketHandle silent = plat::kNoSocket;
    const plat::IpAddress address = *plat::parseIp(kSilentServer);
    if (!plat::sysNet().openUdp(address.family, silent).ok() ||
        !plat::sysNet().bind(silent, {address, 53}).ok()) {
        std::printf("| (the wait for a silent server needs the right to open port 53) | | | |\n");
        return;
    }
    std::vector<plat::IpAddress> found;
    _tvLogger log;
    CallContext call{log};
    const NameSource names{{{address, false, {}}}, {}, {}, {}};
    call.names = &names;
    const uint64_t startMs = plat::sysClock().tickMs();
    const double start = processorSeconds();
    if (!dnsLookup(call, "stall.example.test", Deadline(kStallMs), found)) std::puts("Answered?");
    std::printf("| processor time of %.1f s without an answer, ms | %.2f | | |\n",
                static_cast<double>(plat::sysClock().tickMs() - startMs) / 1e3,
                (processorSeconds() - start) * 1e3);
    plat::sysNet().close(silent);
}

}  // namespace
}  // namespace tv::bench

int main() {
    using namespace tv;
    _tvLogger log;
    ensureSocketLibrary(log);
    ResolverState state;
    replaceResolverState(&state);
    bench::fill(state);
    bench::printCosts(state);
    bench::printStall();
    replaceResolverState(nullptr);
    return 0;
}
