// Scope guard: a log context that is closed on every path out.
#pragma once

#include <string_view>

#include "log/LogBase.h"

namespace tv {

class LogContextExitor {
public:
    LogContextExitor(LogBase& log, std::string_view name) : log_(log) {
        log_.enterContext(name, 1);
    }
    ~LogContextExitor() { log_.leaveContext(); }
    LogContextExitor(const LogContextExitor&) = delete;
    LogContextExitor& operator=(const LogContextExitor&) = delete;

private:
    LogBase& log_;
};

}  // namespace tv
