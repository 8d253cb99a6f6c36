// The verdict on a server's certificates by the anchors of the system or of a file.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "log/LogBase.h"
#include "net/x509/X509Chain.h"

namespace tv {

// The anchors of one handshake. Their file is read once: identity and verdict speak of the same
// bytes, whoever replaces it in between.
class TrustAnchors {
public:
    // file: UTF-8 path of a PEM file that takes the place of the system's anchors; empty for those.
    explicit TrustAnchors(const std::string& file);

    // What tells these anchors from others: it changes with the bytes of their file. The stores of
    // Windows are taken as one and the same.
    std::string identity() const;

    // chain: DER, the server's own certificate first. budget: one for each Certificate message.
    x509::ChainVerdict verify(LogBase& log, const std::vector<std::vector<uint8_t>>& chain,
                              std::string_view host, int64_t nowSeconds,
                              x509::WorkBudget& budget) const;

private:
    std::vector<std::vector<uint8_t>> certificates(LogBase& log) const;

    bool ofSystem_;
    std::string path_;                 // empty where the system keeps them in no file
    std::optional<std::string> text_;  // of the file, where it can be read and is not too long
};

}  // namespace tv
