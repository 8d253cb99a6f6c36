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
    // further: likewise of one whose anchors count besides them; empty for none.
    explicit TrustAnchors(const std::string& file, const std::string& further = {});

    // What tells these anchors from others: it changes with the bytes of their file. The stores of
    // Windows are taken as one and the same.
    std::string identity() const;

    // chain: DER, the server's own certificate first. budget: one for each Certificate message.
    x509::ChainVerdict verify(LogBase& log, const std::vector<std::vector<uint8_t>>& chain,
                              std::string_view host, int64_t nowSeconds,
                              x509::WorkBudget& budget) const;

private:
    std::vector<std::vector<uint8_t>> certificates(LogBase& log) const;

    struct File {
        explicit File(std::string path);

        std::string path;                 // empty where there is none
        std::optional<std::string> text;  // where it can be read and is not too long
    };
    static std::string identityOf(const File& file);
    static void append(LogBase& log, const File& file, std::vector<std::vector<uint8_t>>& anchors);

    bool ofSystem_;
    File main_;  // without a path where the system keeps its anchors in no file
    File further_;
};

}  // namespace tv
