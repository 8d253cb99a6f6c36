// What one call into the transport is given, its first parameter everywhere: the log, who may stop
// it and when it must be over; and what it reports beside success: why it ended early.
#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>

#include "log/LogBase.h"
#include "net/stream/Deadline.h"
#include "net/stream/ProgressMonitor.h"

namespace tv {

// Written to the log under "ConnectFailReason"; the numbers are part of the log's language.
enum class ConnectFailReason : int {
    None = 0,
    EmptyHostname = 1,
    DnsFailed = 2,
    DnsTimeout = 3,
    Aborted = 4,
    InternalError = 5,
    Timeout = 6,
    Rejected = 7,
    TlsNoServerHello = 103,
    NoServerCertificate = 104,
    CertificateInvalid = 106,
    CertificateRequirement = 108,
    TlsServerHelloUnreadable = 127,
};

struct CallContext {
    explicit CallContext(LogBase& to) : log(to) {}
    // For what is done beside the call, whose words and outcome are nobody's concern. A limit on
    // the whole does not hold for it.
    CallContext aside(LogBase& to) const {
        CallContext own(to);
        own.monitor = monitor;
        own.heartbeatMs = heartbeatMs;
        own.fineSlices = fineSlices;
        return own;
    }

    LogBase& log;
    ProgressMonitor* monitor = nullptr;  // not owned; may be null
    uint32_t heartbeatMs = 0;       // how often a wait returns to look for an abort; 0: default
    bool fineSlices = false;        // look more often than that
    std::optional<Deadline> whole;  // ends the operation whatever still moves; see WholeLimit

    bool aborted = false;    // set by the transport when the monitor asked to stop
    bool timedOut = false;   // set by the transport when a wait ran out
    uint64_t overranMs = 0;  // with timedOut: the whole limit that ended it; 0: nothing moved
    bool anySent = false;    // some of what was sent last may have left, all of it or not
    ConnectFailReason connectFailReason = ConnectFailReason::None;
    std::string cause;  // what stands behind the reason, as a clause; empty: its text says it all

    // The longest that a wait may go without looking for an abort.
    uint32_t sliceMs() const {
        constexpr uint32_t kLeastHeartbeat = 50, kFine = 66, kUsual = 333;
        if (heartbeatMs > 0) return std::max(heartbeatMs, kLeastHeartbeat);
        return fineSlices ? kFine : kUsual;
    }
    void setMonitor(ProgressMonitor* m) {
        monitor = m;
        heartbeatMs = m ? m->heartbeatMs() : 0;
    }
    // Asks the monitor and remembers a yes.
    bool checkAbort() {
        if (monitor && monitor->abortRequested()) aborted = true;
        return aborted;
    }
    void clearOutcome() {
        aborted = timedOut = false;
        overranMs = 0;
        connectFailReason = ConnectFailReason::None;
        cause.clear();
    }
};

}  // namespace tv
