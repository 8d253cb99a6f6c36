#include "log/tvLogger.h"

#include <new>

#include "base/Hex.h"
#include "platform/SysClock.h"
#include "platform/SysFile.h"

namespace tv {
namespace {

constexpr std::string_view kRootTag = "TolvaneLog";
constexpr std::string_view kSecret = "{PasswordOrCredentials}";

// Logging never fails its caller: an entry for which there is no memory is dropped.
template <class Write>
bool unfailing(Write write) {
    try {
        write();
    } catch (const std::bad_alloc&) {
    }
    return true;
}

}  // namespace

_tvLogger::_tvLogger() { clearLog(); }

bool _tvLogger::addText(EntryKind kind, std::string_view text) {
    if (null_) return true;
    return unfailing([&] {
        const std::lock_guard guard(lock_);
        errorLog_.addText(kind, text);
        writeDebugLine(text, "\n");
    });
}

bool _tvLogger::logText(std::string_view text) { return addText(EntryKind::Text, text); }

bool _tvLogger::logVerbose(std::string_view text) {
    return !verbose_ || addText(EntryKind::Information, text);
}

bool _tvLogger::logError(std::string_view text) { return addText(EntryKind::Error, text); }

bool _tvLogger::logInfo(std::string_view text) { return addText(EntryKind::Information, text); }

void _tvLogger::getText(std::string& out) {
    const std::lock_guard guard(lock_);
    errorLog_.render(out);
}

bool _tvLogger::logData(std::string_view name, std::string_view value) {
    if (null_) return true;
    return unfailing([&] {
        const std::lock_guard guard(lock_);
        errorLog_.addData(name, value);
        writeDebugLine(std::string(name) + ": " + std::string(value), "\r\n");
    });
}

bool _tvLogger::logDataVerbose(std::string_view name, std::string_view value) {
    return !verbose_ || logData(name, value);
}

bool _tvLogger::logDataX(std::string_view name, const XString& value) {
    return logData(name, value.isSecret() ? kSecret : value.utf8());
}

bool _tvLogger::logDataLong(std::string_view name, int64_t number) {
    return null_ || logData(name, std::to_string(number));
}

bool _tvLogger::logDataHex(std::string_view name, std::span<const uint8_t> bytes) {
    return null_ || unfailing([&] { logData(name, hexUpper(bytes)); });
}

void _tvLogger::clearLog() {
    const std::lock_guard guard(lock_);
    errorLog_.restart(kRootTag);
    open_.clear();
    depth_ = 0;
}

bool _tvLogger::enterContext(std::string_view name, int show) {
    if (null_) return true;
    const std::lock_guard guard(lock_);
    return unfailing([&] {
        open_.reserve(open_.size() + 1);
        errorLog_.openContext(name);
        open_.push_back({plat::sysClock().tickMs(), show != 0});
        writeDebugLine(std::string(name) + ":", "\n");
        ++depth_;
    });
}

bool _tvLogger::leaveContext() {
    if (null_) return true;
    const std::lock_guard guard(lock_);
    if (open_.empty()) return true;
    const OpenContext context = open_.back();
    open_.pop_back();
    if (depth_ > 0) --depth_;
    const uint64_t elapsed = verbose_ ? plat::sysClock().tickMs() - context.startTickMs : 0;
    const uint32_t elapsedMs = static_cast<uint32_t>(elapsed);
    errorLog_.closeContext(elapsedMs, verbose_ && context.show);
    return unfailing([&] {
        writeDebugLine(elapsedMs != 0 ? "(leaveContext " + std::to_string(elapsedMs) + "ms)"
                                      : std::string("(leaveContext)"),
                       "\n");
    });
}

bool _tvLogger::hasOption(std::string_view keyword) const {
    return options_.find(keyword) != std::string::npos;
}

void _tvLogger::setDebugLogPath(std::string_view utf8Path) {
    const std::lock_guard guard(lock_);
    debugLogPath_ = utf8Path;
}

void _tvLogger::writeDebugLine(std::string_view line, std::string_view lineEnd) const {
    if (debugLogPath_.empty()) return;
    std::string text(4 * static_cast<size_t>(depth_), ' ');
    text += line;
    text += lineEnd;
    plat::SysFile file;
    if (file.openAppend(debugLogPath_)) {
        file.write(text.data(), text.size());
    }
}

}  // namespace tv
