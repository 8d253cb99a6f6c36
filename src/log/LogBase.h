// The log that every operation receives: nested contexts, facts (name and value), information and
// errors. What it gathers is the text a host reads after a failure.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "base/XString.h"

namespace tv {

// All entries return true; logging never fails its caller. A log whose null flag is set records
// nothing. The order of the virtual functions is fixed.
class LogBase {
public:
    virtual ~LogBase() = default;
    // A text that is neither an error nor information.
    virtual bool logText(std::string_view text) = 0;
    // Information that only a verbose log keeps.
    virtual bool logVerbose(std::string_view text) = 0;
    // Renders all entries as indented text, lines ended by CR LF.
    virtual void getText(std::string& out) = 0;
    // A fact that only a verbose log keeps.
    virtual bool logDataVerbose(std::string_view name, std::string_view value) = 0;
    virtual bool logError(std::string_view text) = 0;
    virtual bool logInfo(std::string_view text) = 0;
    // Bytes as upper-case hexadecimal.
    virtual bool logDataHex(std::string_view name, std::span<const uint8_t> bytes) = 0;
    // Drops everything and starts again with an empty root context.
    virtual void clearLog() = 0;
    // Opens a context under the current one and makes it current; show = 0 hides its elapsed time.
    virtual bool enterContext(std::string_view name, int show) = 0;
    // Closes the current context, if one is open.
    virtual bool leaveContext() = 0;
    virtual bool logData(std::string_view name, std::string_view value) = 0;
    // A secret string is shown as "{PasswordOrCredentials}".
    virtual bool logDataX(std::string_view name, const XString& value) = 0;
    // True if the free-form options text that travels with the log holds the keyword.
    virtual bool hasOption(std::string_view keyword) const = 0;

    // As signed decimal; a flag as 0 or 1.
    bool logDataLong(std::string_view name, int64_t number);
    bool logDataBool(std::string_view name, bool value) { return logDataLong(name, value); }
    // "Elapsed time: N millisec" since a tick count; nothing if the clock jumped.
    bool logElapsed(std::string_view name, uint64_t startTickMs);

    bool isVerbose() const { return verbose_; }
    void setVerbose(bool verbose) { verbose_ = verbose; }

protected:
    bool null_ = false;
    bool verbose_ = false;
};

}  // namespace tv
