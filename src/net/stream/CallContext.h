// What goes down with a call into the transport, its first parameter everywhere: the log, who may
// stop it and when it must be over. What comes up is a Failure.
#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>

#include "log/LogBase.h"
#include "net/stream/Deadline.h"
#include "net/stream/ProgressMonitor.h"

namespace tv {

struct NameSource;

struct CallContext {
    explicit CallContext(LogBase& to) : log(to) {}
    // For what is done beside the call, with a log of its own. A total time-out does not hold for
    // it.
    CallContext aside(LogBase& to) const {
        CallContext own(to);
        own.monitor = monitor;
        own.heartbeatMs = heartbeatMs;
        own.names = names;
        return own;
    }

    LogBase& log;
    ProgressMonitor* monitor = nullptr;  // not owned; may be null
    uint32_t heartbeatMs = 0;           // how often a wait returns to look for an abort; 0: default
    std::optional<Deadline> total;      // ends the operation whatever still moves; see TotalTimeout
    const NameSource* names = nullptr;  // not owned; null: names as the system knows them

    // The longest that a wait may go without looking for an abort.
    uint32_t sliceMs() const {
        constexpr uint32_t kLeastHeartbeat = 50, kUsual = 333;
        return heartbeatMs > 0 ? std::max(heartbeatMs, kLeastHeartbeat) : kUsual;
    }
    void setMonitor(ProgressMonitor* m) {
        monitor = m;
        heartbeatMs = m ? m->heartbeatMs() : 0;
    }
    // Asks the monitor and remembers a yes: nothing more is begun for this call.
    bool mustStop() {
        if (monitor && monitor->abortRequested()) stopped_ = true;
        return stopped_;
    }
    bool wasStopped() const { return stopped_; }

private:
    bool stopped_ = false;
};

}  // namespace tv
