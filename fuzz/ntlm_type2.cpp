// The reader of an NTLM challenge: whatever it accepts encodes and decodes to the same, and an
// answer made from it, bound to a certificate or not, can be read again.
#include "Target.h"
#include "base/ConstTime.h"
#include "mail/sasl/NtlmMessage.h"
#include "mail/sasl/NtlmResponse.h"
#include "mail/sasl/NtlmTargetInfo.h"

// However the server's pairs are: its names, our two pairs behind them, and a list that ends.
static tv::ntlm::BoundTarget bound(const tv::ntlm::Bytes& targetInfo) {
    using namespace tv;
    const crypto::Md5::Digest hash = ntlm::channelBindingHash(targetInfo);
    ntlm::BoundTarget target = ntlm::boundTarget(targetInfo, hash);
    require(target.info.size() >= 32 && target.info.size() <= targetInfo.size() + 32);
    const Input tail = Input(target.info).last(32);
    require(tail[0] == 6 && (tail[4] & 2) != 0 && tail[8] == 10 && tail.back() == 0);
    require(ctEqual(tail.subspan(12, hash.size()), hash));
    const NtlmTargetNames names = ntlmTargetNames(targetInfo), kept = ntlmTargetNames(target.info);
    require(names.nbDomain == kept.nbDomain && names.dnsComputer == kept.dnsComputer);
    const ntlm::BoundTarget again = ntlm::boundTarget(target.info, hash);
    require(again.info == target.info && again.time == target.time);
    return target;
}

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
    const ntlm::BoundTarget target = bound(challenge.targetInfo);
    answer.hasMic = (challenge.flags & 1) != 0;
    auto made = ntlm::computeNtlmV2Response(
        {"User", "Password", "Domain", 437}, challenge.challenge, challenge.challenge,
        target.time.value_or(0), answer.hasMic ? target.info : challenge.targetInfo);
    answer.flags = challenge.flags;
    answer.ntResponse = std::move(made.nt);
    answer.lmResponse = std::move(made.lm);
    const auto bytes = answer.encode();
    require(!bytes || (read.decode(bytes->bytes()) == NtlmDefect::None &&
                       ctEqual(read.ntResponse.bytes(), answer.ntResponse.bytes())));
}
