// Base of the library's public objects: one lock, one log, and the protocol by which every public
// operation begins and ends.
#pragma once

#include <mutex>
#include <string_view>

#include "base/XString.h"
#include "log/tvLogger.h"

namespace tv {

class ClsBase {
public:
    ClsBase() = default;
    virtual ~ClsBase() = default;
    ClsBase(const ClsBase&) = delete;
    ClsBase& operator=(const ClsBase&) = delete;

    // The account of the last public operation; of the running one while it runs.
    XString lastErrorText();
    bool verboseLogging() const;  // for tests
    void setVerboseLogging(bool verbose);
    // UTF-8 path of a file that receives every log line as it is written; empty for none.
    void setDebugLogFilePath(const XString& path);
    // Free-form text of keywords that switch rarely used behaviour, tested by substring.
    void setUncommonOptions(const XString& options);

protected:
    // One public operation: takes the lock, empties the log, opens a context named after the
    // operation and closes it when it goes out of scope. Without finish the operation has failed.
    class Operation {
    public:
        Operation(ClsBase& object, std::string_view name);
        ~Operation();
        Operation(const Operation&) = delete;
        Operation& operator=(const Operation&) = delete;

        LogBase& log() { return object_.log_; }
        // Notes the result and hands it back.
        bool finish(bool success) { return success_ = success; }

    private:
        std::lock_guard<std::recursive_mutex> guard_;
        ClsBase& object_;
        bool success_ = false;
    };

    mutable std::recursive_mutex lock_;
    _tvLogger log_;

private:
    bool verbose_ = false;
};

}  // namespace tv
