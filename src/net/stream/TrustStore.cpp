// Chooses the anchors, judges the chain by them and asks the system where that fails.
#include "net/stream/TrustStore.h"

#include <algorithm>
#include <span>
#include <utility>

#include "base/Ascii.h"
#include "base/Hex.h"
#include "base/crypto/Hash.h"
#include "log/LogContextExitor.h"
#include "net/x509/HostMatch.h"
#include "net/x509/Pem.h"
#include "platform/SysFile.h"
#include "platform/SysTrustRoots.h"

namespace tv {
namespace {

constexpr size_t kMaxAnchors = 1000;  // the public lists hold some 150
constexpr size_t kMaxAnchorsFile = size_t{16} * 1024 * 1024;
constexpr uint32_t kSystemChainMs = 15000;  // the system may ask the network for a root

std::string systemAnchorFile() {
    for (const std::string& path : plat::sysTrustRoots().anchorFiles()) {
        if (plat::isRegularFile(path)) return path;
    }
    return {};
}

// What the system makes of the chain, for it fetches most of its roots only when it is asked about
// one that ends at them. Its path is held against all our own rules, its root being the only
// anchor.
std::optional<x509::ChainVerdict> verdictOnSystemPath(LogBase& log, const plat::DerList& chain,
                                                      const x509::ChainQuestion& question,
                                                      x509::WorkBudget& budget) {
    const bool isAddress = !x509::addressBytes(question.host).empty();
    const std::string name(isAddress ? std::string_view() : x509::withoutFinalDot(question.host));
    const uint64_t limitMs = std::min<uint64_t>(budget.leftMs(), kSystemChainMs);
    plat::DerList path;
    std::string reason;
    if (!plat::sysTrustRoots().findPath(chain, name, static_cast<uint32_t>(limitMs), path,
                                        reason)) {
        log.logInfo(reason);
        return std::nullopt;
    }
    if (path.empty() || path.front() != chain.front()) {
        log.logInfo("The system's path does not begin with the server's certificate.");
        return std::nullopt;
    }
    const x509::CertificateSet root({path.back()});
    if (path.size() > 1) path.pop_back();
    const std::vector<x509::Bytes> views(path.begin(), path.end());
    x509::ChainVerdict verdict = x509::verifyChain(
        views, {question.host, question.nowSeconds, root, question.refused}, budget);
    log.logInfo(verdict.trusted() ? "The system knew the way to a trusted root."
                                  : "The system trusts a path that breaks a rule.");
    return verdict;
}

}  // namespace

TrustAnchors::File::File(std::string of) : path(std::move(of)) {
    std::string bytes;
    if (path.empty() || !plat::readFileStart(path, kMaxAnchorsFile + 1, bytes)) return;
    if (bytes.size() <= kMaxAnchorsFile) text = std::move(bytes);
}

TrustAnchors::TrustAnchors(const std::string& file, const std::string& further)
    : ofSystem_(file.empty()), main_(ofSystem_ ? systemAnchorFile() : file), further_(further) {}

std::string TrustAnchors::identityOf(const File& file) {
    if (!file.text) return file.path;
    // The bytes, for a file may be replaced by one of the same size and time.
    const std::span<const uint8_t> bytes(bytesOf(*file.text), file.text->size());
    return file.path + ' ' + hexLower(crypto::Hash::of(crypto::HashId::kSha256, bytes));
}

std::string TrustAnchors::identity() const {
    return identityOf(main_) + identityOf(further_);
}

void TrustAnchors::append(LogBase& log, const File& file, plat::DerList& anchors) {
    if (file.path.empty()) return;
    log.logData("trustAnchors", file.path);
    if (!file.text) {
        log.logError("Failed to read the file of trust anchors.");
        return;
    }
    for (auto& certificate : x509::pemCertificates(*file.text, kMaxAnchors)) {
        anchors.push_back(std::move(certificate));
    }
}

plat::DerList TrustAnchors::certificates(LogBase& log) const {
    plat::DerList anchors;
    if (main_.path.empty()) anchors = plat::sysTrustRoots().anchors();
    append(log, main_, anchors);
    append(log, further_, anchors);
    return anchors;
}

x509::ChainVerdict TrustAnchors::verify(LogBase& log,
                                        const std::vector<std::vector<uint8_t>>& chain,
                                        std::string_view host, int64_t nowSeconds,
                                        x509::WorkBudget& budget) const {
    const LogContextExitor context(log, "verifyServerChain");
    const x509::CertificateSet anchors(certificates(log));
    const x509::CertificateSet refused(plat::sysTrustRoots().refused());
    const x509::ChainQuestion question = {host, nowSeconds, anchors, refused};
    const std::vector<x509::Bytes> views(chain.begin(), chain.end());
    x509::ChainVerdict verdict = x509::verifyChain(views, question, budget);
    if (verdict.trusted() || verdict.isFinal || !ofSystem_) return verdict;
    return verdictOnSystemPath(log, chain, question, budget).value_or(std::move(verdict));
}

}  // namespace tv
