// What every public object does alike: handing out its account, taking its settings, beginning and
// ending an operation.
#include "log/ClsBase.h"

#include <string>

namespace tv {
namespace {

// What every account begins with. Every machine we build for is little-endian.
constexpr std::string_view kHead =
    sizeof(void*) == 8 ? "    DllDate: Mar 29 2024\r\n    TolvaneVersion: 9.5.0.98\r\n"
                         "    Architecture: Little Endian; 64-bit\r\n    Language: C\r\n"
                       : "    DllDate: Mar 29 2024\r\n    TolvaneVersion: 9.5.0.98\r\n"
                         "    Architecture: Little Endian; 32-bit\r\n    Language: C\r\n";

}  // namespace

XString ClsBase::lastErrorText() {
    const std::lock_guard guard(lock_);
    std::string text;
    log_.getText(text);
    return XString(text);
}

bool ClsBase::verboseLogging() const {
    const std::lock_guard guard(lock_);
    return verbose_;
}

void ClsBase::setVerboseLogging(bool verbose) {
    const std::lock_guard guard(lock_);
    verbose_ = verbose;
}

void ClsBase::setDebugLogFilePath(const XString& path) {
    const std::lock_guard guard(lock_);
    log_.setDebugLogPath(path.utf8());
}

void ClsBase::setUncommonOptions(const XString& options) {
    const std::lock_guard guard(lock_);
    log_.setOptions(options.utf8());
}

ClsBase::Operation::Operation(ClsBase& object, std::string_view name)
    : guard_(object.lock_), object_(object) {
    _tvLogger& log = object_.log_;
    log.setVerbose(object_.verbose_);
    log.beginOperation(name, {kHead, object_.verbose_ ? "    VerboseLogging: 1\r\n"
                                                      : "    VerboseLogging: 0\r\n"});
}

ClsBase::Operation::~Operation() {
    object_.log_.endOperation(success_ ? "Success." : "Failed.");
}

}  // namespace tv
