// The real log: entries of an account and, where a path is set, line by line in a debug file.
#pragma once

#include <initializer_list>
#include <mutex>
#include <string>
#include <vector>

#include "log/LogBase.h"
#include "log/tvErrorLog.h"

namespace tv {

class _tvLogger final : public LogBase {
public:
    _tvLogger();

    bool logText(std::string_view text) override;
    bool logVerbose(std::string_view text) override;
    void getText(std::string& out) override;
    bool logDataVerbose(std::string_view name, std::string_view value) override;
    bool logError(std::string_view text) override;
    bool logInfo(std::string_view text) override;
    bool logDataHex(std::string_view name, std::span<const uint8_t> bytes) override;
    void clearLog() override;
    bool enterContext(std::string_view name, int show) override;
    bool leaveContext() override;
    bool logData(std::string_view name, std::string_view value) override;
    bool logDataX(std::string_view name, const XString& value) override;
    bool hasOption(std::string_view keyword) const override;

    // Drops everything, opens the operation's context and puts down lines as they are to stand
    // there, in one go: there is an account for every call of a host.
    void beginOperation(std::string_view name, std::initializer_list<std::string_view> facts);
    // The last line of an operation, and the end of its context.
    void endOperation(std::string_view outcome);
    // UTF-8 path of the debug file; empty turns it off. A file that cannot be opened is skipped
    // line by line.
    void setDebugLogPath(std::string_view utf8Path);
    // Counts in its place and stays its owner's; null: nothing does.
    void layOverDebugLogPath(const std::string* utf8Path);
    // Free-form text, tested by substring.
    void setOptions(std::string_view options) { options_ = options; }
    int depth() const { return depth_; }

private:
    struct OpenContext {
        uint64_t startTickMs;
        bool show;
    };

    bool addText(std::string_view text);

    // What follows is called with the lock held.
    void keepText(std::string_view text);
    void keepBlock(std::string_view lines);
    void clear();
    void openContext(std::string_view name, bool show);
    void leave();
    uint32_t closeContext();
    const std::string& debugPath() const {
        return overDebugLogPath_ ? *overDebugLogPath_ : debugLogPath_;
    }
    bool hasDebugFile() const { return !debugPath().empty(); }
    // The parts with their line end are one line. Opens and closes the file, so that it is there
    // before the call returns.
    void writeDebugLine(int depth, std::initializer_list<std::string_view> parts) const;

    // One thread may read the text while another is still writing entries.
    std::mutex lock_;
    tvErrorLog errorLog_;
    std::vector<OpenContext> open_;
    int dropped_ = 0;  // contexts that there was no memory to open
    int depth_ = 0;
    std::string debugLogPath_;
    const std::string* overDebugLogPath_ = nullptr;
    std::string options_;
};

}  // namespace tv
