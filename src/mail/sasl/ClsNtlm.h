// The client's side of an NTLM exchange: makes the first message, reads the server's, answers it.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "base/SecureBuffer.h"
#include "base/XString.h"
#include "log/ClsBase.h"
#include "mail/sasl/NtlmMessage.h"
#include "mail/sasl/NtlmResponse.h"
#include "mail/sasl/NtlmTargetInfo.h"

namespace tv {

class ClsNtlm : public ClsBase {
public:
    ClsNtlm();

    void put_UserName(const XString& userName);
    void put_Password(const XString& password);
    void put_Domain(const XString& domain);
    void put_Workstation(const XString& workstation);
    void put_NtlmVersion(int32_t version);  // 1 is NTLMv1, anything else NTLMv2
    void put_Flags(uint32_t flags);
    // Used instead of a random one if it has exactly 8 bytes.
    void put_ClientChallenge(std::span<const uint8_t> challenge);
    // What the messages of version 2 are bound to, as RFC 5056 has it ("tls-server-end-point:..."),
    // with a MIC over all three; empty: nothing, and no MIC.
    void put_ChannelBinding(std::span<const uint8_t> binding);

    // All messages in base64. On failure the reason is in the log and out is as it was.
    bool genType1(LogBase& log, std::string& out);
    bool genType3(LogBase& log, std::string_view type2, SecureBuffer& out);

    // What the last Type 2 said of the server.
    const NtlmTargetNames& targetNames() const { return targetNames_; }

private:
    bool readType2(LogBase& log, std::string_view type2);
    void logType2(LogBase& log) const;
    bool chooseClientChallenge(LogBase& log, ntlm::Challenge& challenge) const;
    bool isBound() const { return ntlmVersion_ != 1 && !channelBinding_.empty(); }
    ntlm::Responses responsesV2(const ntlm::Secret& secret, const ntlm::Challenge& challenge) const;
    // sessionKey: what a MIC is made with.
    bool addResponses(LogBase& log, NtlmAuthenticate& message, SecureBuffer& sessionKey) const;
    SecureBuffer messageText(std::string_view utf8, uint32_t messageFlags) const;

    int32_t ntlmVersion_ = 1;
    uint32_t oemCodePage_;
    uint32_t flags_ = ntlm::kUnicode | ntlm::kOem | ntlm::kRequestTarget | ntlm::kNtlm |
                      ntlm::kAlwaysSign | ntlm::kExtendedSessionSecurity;
    XString userName_;
    XString password_;
    XString domain_;
    XString workstation_;
    ntlm::Bytes clientChallenge_;
    ntlm::Bytes channelBinding_;

    ntlm::Bytes type1_;  // as sent
    ntlm::Bytes type2_;  // as received
    NtlmChallenge server_;
    NtlmTargetNames targetNames_;
};

}  // namespace tv
