// The reader of an NTLM challenge: whatever it accepts encodes and decodes to the same, and an
// answer made from it can be read again.
#include <cstdlib>

#include "base/ConstTime.h"
#include "mail/sasl/NtlmMessage.h"
#include "mail/sasl/NtlmResponse.h"

namespace {

void require(bool holds) {
    if (!holds) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::span<const uint8_t> input(data, size);
    tv::NtlmChallenge challenge;
    if (challenge.decode(input) == tv::NtlmDefect::None) {
        require(challenge.targetName.size() <= size && challenge.targetInfo.size() <= size);
        const auto encoded = challenge.encode();
        require(encoded.has_value());
        tv::NtlmChallenge again;
        require(again.decode(*encoded) == tv::NtlmDefect::None);
        require(again.targetInfo == challenge.targetInfo && again.flags == challenge.flags);
        tv::ntlmTargetNames(challenge.targetInfo);

        const tv::ntlm::Secret secret{"User", "Password", "Domain", 437};
        auto responses = tv::ntlm::computeNtlmV2Response(
            secret, challenge.challenge, challenge.challenge, 0, challenge.targetInfo);
        tv::NtlmAuthenticate answer;
        answer.flags = challenge.flags;
        answer.ntResponse = std::move(responses.nt);
        answer.lmResponse = std::move(responses.lm);
        if (const auto bytes = answer.encode()) {
            tv::NtlmAuthenticate read;
            require(read.decode(bytes->bytes()) == tv::NtlmDefect::None);
            require(tv::ctEqual(read.ntResponse.bytes(), answer.ntResponse.bytes()));
        }
    }
    tv::NtlmAuthenticate authenticate;
    authenticate.decode(input);
    tv::NtlmNegotiate negotiate;
    negotiate.decode(input);
    return 0;
}
