// The reader of an NTLM challenge: whatever it accepts encodes and decodes to the same, and an
// answer made from it can be read again.
#include "Target.h"
#include "base/ConstTime.h"
#include "mail/sasl/NtlmMessage.h"
#include "mail/sasl/NtlmResponse.h"

void tv::take(Input input) {
    NtlmAuthenticate answer, read;
    read.decode(input);
    NtlmNegotiate().decode(input);
    NtlmChallenge challenge, again;
    if (challenge.decode(input) != NtlmDefect::None) return;
    require(challenge.targetName.size() + challenge.targetInfo.size() <= 2 * input.size());
    const auto encoded = challenge.encode();
    require(encoded && again.decode(*encoded) == NtlmDefect::None);
    require(again.targetInfo == challenge.targetInfo && again.flags == challenge.flags);
    ntlmTargetNames(challenge.targetInfo);
    auto made =
        ntlm::computeNtlmV2Response({"User", "Password", "Domain", 437}, challenge.challenge,
                                    challenge.challenge, 0, challenge.targetInfo);
    answer.flags = challenge.flags;
    answer.ntResponse = std::move(made.nt);
    answer.lmResponse = std::move(made.lm);
    const auto bytes = answer.encode();
    require(!bytes || (read.decode(bytes->bytes()) == NtlmDefect::None &&
                       ctEqual(read.ntResponse.bytes(), answer.ntResponse.bytes())));
}
