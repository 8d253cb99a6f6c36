// Chooses the anchors, judges the chain by them and asks the system where that fails.
#include "net/TrustStore.h"

#include "log/LogContextExitor.h"
#include "net/x509/Pem.h"
#include "platform/SysFile.h"
#include "platform/SysTrustRoots.h"

namespace tv {
namespace {

constexpr size_t kMaxAnchors = 1000;
constexpr size_t kMaxAnchorsFile = 16 * 1024 * 1024;
constexpr uint32_t kSystemChainMs = 15000;

plat::DerList anchorsOfFile(const std::string& path, LogBase& log) {
    std::string text;
    log.logData("trustAnchors", path);
    if (!plat::readFileStart(path, kMaxAnchorsFile + 1, text) || text.size() > kMaxAnchorsFile) {
        log.logError("Failed to read the file of trust anchors.");
        return {};
    }
    return x509::pemCertificates(text, kMaxAnchors);
}

plat::DerList systemAnchors(LogBase& log) {
    for (const std::string& path : plat::trustAnchorFiles()) {
        if (plat::isRegularFile(path)) return anchorsOfFile(path, log);
    }
    return plat::systemTrustAnchors();
}

}  // namespace

x509::ChainVerdict verifyServerChain(const std::vector<std::vector<uint8_t>>& chain,
                                     std::string_view host, int64_t nowSeconds,
                                     const std::string& anchorsFile, x509::WorkBudget& budget,
                                     LogBase& log) {
    const LogContextExitor context(log, "verifyServerChain");
    const x509::CertificateSet anchors(anchorsFile.empty() ? systemAnchors(log)
                                                           : anchorsOfFile(anchorsFile, log));
    const std::vector<x509::Bytes> views(chain.begin(), chain.end());
    const x509::ChainVerdict verdict =
        x509::verifyChain(views, {host, nowSeconds, anchors}, budget);
    if (verdict.broken != x509::ChainRule::UnknownIssuer || !anchorsFile.empty()) return verdict;

    // Systems fetch most of their roots only when they are asked about a chain. Name, time and
    // usage stay our own judgement.
    std::string reason;
    if (plat::systemTrustsChain(chain, kSystemChainMs, reason)) {
        return x509::verifyLeaf(chain.front(), host, nowSeconds);
    }
    log.logInfo(reason);
    return verdict;
}

std::string anchorsIdentity(const std::string& anchorsFile) {
    std::string path = anchorsFile;
    for (const std::string& bundle : plat::trustAnchorFiles()) {
        if (path.empty() && plat::isRegularFile(bundle)) path = bundle;
    }
    plat::FileStamp stamp;
    if (!plat::fileStamp(path, stamp)) return path;
    return path + ' ' + std::to_string(stamp.size) + ' ' + std::to_string(stamp.modified);
}

}  // namespace tv
