// The process-wide default NTLM version, taken by every new NTLM exchange.
#pragma once

#include <cstdint>

namespace tv {

// Stored without a check: 1 is NTLMv1, anything else NTLMv2. Initially 2.
void setDefaultNtlmVersion(int32_t version);
int32_t defaultNtlmVersion();

}  // namespace tv
