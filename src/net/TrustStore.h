// The verdict on a server's certificates by the anchors of the system or of a file.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "log/LogBase.h"
#include "net/x509/X509Chain.h"

namespace tv {

// chain: DER, the server's own certificate first. anchorsFile: UTF-8 path of a PEM file that takes
// the place of the system's anchors; empty for those. budget: one for each Certificate message.
x509::ChainVerdict verifyServerChain(const std::vector<std::vector<uint8_t>>& chain,
                                     std::string_view host, int64_t nowSeconds,
                                     const std::string& anchorsFile, x509::WorkBudget& budget,
                                     LogBase& log);

// What tells these anchors from others: it changes with their file. The stores of Windows are taken
// as one and the same.
std::string anchorsIdentity(const std::string& anchorsFile);

}  // namespace tv
