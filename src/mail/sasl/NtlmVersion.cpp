// The one number behind it.
#include "mail/sasl/NtlmVersion.h"

#include <atomic>

namespace tv {
namespace {

std::atomic<int32_t> version_ = 2;

}  // namespace

void setDefaultNtlmVersion(int32_t version) {
    version_ = version;
}

int32_t defaultNtlmVersion() {
    return version_;
}

}  // namespace tv
