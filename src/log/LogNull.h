// A log that nobody reads, for callees that need one. It carries no options.
#pragma once

#include "log/LogBase.h"

namespace tv {

class LogNull : public LogBase {
public:
    LogNull() { null_ = true; }

    bool logText(std::string_view) override { return true; }
    bool logVerbose(std::string_view) override { return true; }
    void getText(std::string& out) override { out.clear(); }
    bool logDataVerbose(std::string_view, std::string_view) override { return true; }
    bool logError(std::string_view) override { return true; }
    bool logInfo(std::string_view) override { return true; }
    bool logDataHex(std::string_view, std::span<const uint8_t>) override { return true; }
    void clearLog() override {}
    bool enterContext(std::string_view, int) override { return true; }
    bool leaveContext() override { return true; }
    bool logData(std::string_view, std::string_view) override { return true; }
    bool logDataX(std::string_view, const XString&) override { return true; }
    bool hasOption(std::string_view) const override { return false; }
};

}  // namespace tv
