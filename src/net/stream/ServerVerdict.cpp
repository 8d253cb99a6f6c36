// The verdicts on a server's certificate in their order.
#include "net/stream/ServerVerdict.h"

#include <algorithm>
#include <utility>

#include "base/Base64.h"
#include "base/crypto/Hash.h"
#include "net/tls/KeyUsage.h"
#include "net/x509/X509Name.h"

namespace tv {
namespace {

x509::ChainVerdict judgeKeyUsage(const x509::Certificate& leaf, const tls::CipherSuite& suite) {
    std::string lacking = tls::lackingKeyUsage(leaf, suite);
    if (lacking.empty()) return {};
    return {x509::ChainRule::NotForServers, x509::nameText(leaf.subject),
            x509::nameText(leaf.issuer), std::move(lacking)};
}

x509::ChainVerdict judgePin(const x509::Certificate& leaf, std::span<const std::string> pins) {
    const std::string shown = keyPin(leaf);
    if (pins.empty() || std::ranges::find(pins, shown) != pins.end()) return {};
    return {x509::ChainRule::OtherKey, x509::nameText(leaf.subject), x509::nameText(leaf.issuer),
            "sha256//" + base64Encode(shown)};
}

}  // namespace

std::string keyPin(const x509::Certificate& leaf) {
    const auto hash = crypto::Hash::of(crypto::HashId::kSha256, leaf.subjectPublicKeyInfo);
    return {reinterpret_cast<const char*>(hash.data()), hash.size()};
}

x509::ChainVerdict judgeServer(LogBase& log, const tls::Negotiated& server,
                               const x509::Certificate* leaf, std::string_view host,
                               const ServerTrust& trust, int64_t nowSeconds,
                               x509::WorkBudget& budget) {
    x509::ChainVerdict verdict;
    if (trust.anchors) verdict = trust.anchors->verify(log, server.chain, host, nowSeconds, budget);
    if (!verdict.trusted()) return verdict;
    if (!leaf) {
        verdict.broken = x509::ChainRule::Unreadable;
        return verdict;
    }
    verdict = judgeKeyUsage(*leaf, *server.suite);
    if (verdict.trusted()) verdict = judgePin(*leaf, trust.pins);
    return verdict;
}

}  // namespace tv
