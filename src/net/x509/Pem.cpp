// The blocks of a PEM text one after the other, whatever stands between them.
#include "net/x509/Pem.h"

#include "base/Base64.h"

namespace tv::x509 {

std::vector<std::vector<uint8_t>> pemCertificates(std::string_view text, size_t limit) {
    constexpr std::string_view kBegin = "-----BEGIN CERTIFICATE-----";
    constexpr std::string_view kEnd = "-----END CERTIFICATE-----";
    // Far above any certificate, and little enough to hold in memory.
    constexpr size_t kMaxCertificate = size_t{128} * 1024;
    std::vector<std::vector<uint8_t>> out;
    while (out.size() < limit) {
        const size_t begin = text.find(kBegin);
        if (begin == std::string_view::npos) break;
        text.remove_prefix(begin + kBegin.size());
        const size_t end = text.find(kEnd);
        if (end == std::string_view::npos) break;
        auto der = base64Decode(text.substr(0, end), kMaxCertificate, Base64Spaces::Skipped);
        if (der) out.push_back(std::move(*der));
        text.remove_prefix(end + kEnd.size());
    }
    return out;
}

}  // namespace tv::x509
