// What went wrong, as one value that a call gives back: made once, at the lowest place that
// understands it, and carried up by return. It writes no log.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace tv {

enum class Cause : uint8_t {
    None = 0,
    // Connecting. The log shows them under "ConnectFailReason", by number where they have no words:
    // these are part of its language.
    EmptyHostname = 1,
    DnsFailed = 2,
    DnsTimeout = 3,
    Aborted = 4,  // the application asked to stop
    Internal = 5,
    ConnectTimeout = 6,
    Rejected = 7,
    TlsNoServerHello = 103,
    NoServerCertificate = 104,
    CertificateInvalid = 106,
    CertificateRequirement = 108,
    TlsServerHelloUnreadable = 127,
    // An open connection.
    ConnectionLost = 200,
    Timeout = 201,
    LineTooLong = 202,
    OutOfMemory = 203,
};

// As wide as a pointer; none where nothing failed.
class [[nodiscard]] Failure {
public:
    Failure() = default;
    // text: what stands behind the cause, as a clause; empty where the cause says it all. Where
    // there is no memory for it, the failure is OutOfMemory.
    explicit Failure(Cause cause, std::string text = {}) noexcept;

    // True where something failed.
    explicit operator bool() const { return detail_ != nullptr; }
    Cause cause() const;
    bool is(Cause cause) const { return this->cause() == cause; }
    const std::string& text() const;

    // Of a Timeout: the total time-out that ended it; 0: nothing moved.
    uint64_t totalMs() const;
    // Of a send: some of the bytes may have left. OutOfMemory cannot tell, so it says they may.
    bool anySent() const;

    Failure&& withTotal(uint64_t ms) &&;
    Failure&& withAnySent(bool any) &&;

private:
    struct Detail;
    struct Release {
        void operator()(Detail* detail) const noexcept;
    };

    static Detail& outOfMemory() noexcept;

    std::unique_ptr<Detail, Release> detail_;
};

static_assert(sizeof(Failure) == sizeof(void*));

}  // namespace tv
