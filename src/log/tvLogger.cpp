// One entry to the account and one line to the debug file, each of which may fail alone.
#include "log/tvLogger.h"

#include <new>

#include "base/Hex.h"
#include "platform/SysClock.h"
#include "platform/SysFile.h"

namespace tv {
namespace {

constexpr std::string_view kSecret = "{PasswordOrCredentials}";

// Logging never fails its caller: an entry for which there is no memory is dropped. False if so.
template <class Write>
bool done(Write write) {
    try {
        write();
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

}  // namespace

_tvLogger::_tvLogger() {
    clearLog();
}

bool _tvLogger::addText(std::string_view text) {
    if (null_) return true;
    const std::lock_guard guard(lock_);
    keepText(text);
    return true;
}

void _tvLogger::keepText(std::string_view text) {
    done([&] { errorLog_.addText(text); });
    if (hasDebugFile()) done([&] { writeDebugLine(depth_, {text, "\n"}); });
}

bool _tvLogger::logText(std::string_view text) {
    return addText(text);
}

bool _tvLogger::logVerbose(std::string_view text) {
    return !verbose_ || addText(text);
}

bool _tvLogger::logError(std::string_view text) {
    return addText(text);
}

bool _tvLogger::logInfo(std::string_view text) {
    return addText(text);
}

void _tvLogger::getText(std::string& out) {
    const std::lock_guard guard(lock_);
    errorLog_.render(out);
}

bool _tvLogger::logData(std::string_view name, std::string_view value) {
    if (null_) return true;
    const std::lock_guard guard(lock_);
    done([&] { errorLog_.addData(name, value); });
    if (hasDebugFile()) done([&] { writeDebugLine(depth_, {name, ": ", value, "\r\n"}); });
    return true;
}

void _tvLogger::keepBlock(std::string_view lines) {
    done([&] { errorLog_.addBlock(lines); });
    while (hasDebugFile() && !lines.empty()) {
        const size_t size = lines.find('\n') + 1;
        const std::string_view line = lines.substr(0, size);
        done([&] { writeDebugLine(depth_, {line.substr(line.find_first_not_of(' '))}); });
        lines.remove_prefix(size);
    }
}

bool _tvLogger::logDataVerbose(std::string_view name, std::string_view value) {
    return !verbose_ || logData(name, value);
}

bool _tvLogger::logDataX(std::string_view name, const XString& value) {
    return logData(name, value.isSecret() ? kSecret : value.utf8());
}

bool _tvLogger::logDataHex(std::string_view name, std::span<const uint8_t> bytes) {
    if (!null_) done([&] { logData(name, hexUpper(bytes)); });
    return true;
}

void _tvLogger::clearLog() {
    const std::lock_guard guard(lock_);
    clear();
}

void _tvLogger::clear() {
    errorLog_.restart();
    open_.clear();
    dropped_ = 0;
    depth_ = 0;
}

void _tvLogger::beginOperation(std::string_view name,
                               std::initializer_list<std::string_view> facts) {
    const std::lock_guard guard(lock_);
    clear();
    openContext(name, true);
    for (const std::string_view lines : facts) {
        keepBlock(lines);
    }
}

void _tvLogger::endOperation(std::string_view outcome) {
    const std::lock_guard guard(lock_);
    keepText(outcome);
    leave();
}

bool _tvLogger::enterContext(std::string_view name, int show) {
    if (null_) return true;
    const std::lock_guard guard(lock_);
    openContext(name, show != 0);
    return true;
}

void _tvLogger::openContext(std::string_view name, bool show) {
    const bool opened = done([&] {
        open_.reserve(open_.size() + 1);
        errorLog_.openContext(name);
        open_.push_back({plat::sysClock().tickMs(), show});
    });
    // Its leaving comes all the same and must not close another context.
    if (!opened) ++dropped_;
    const int depth = depth_++;
    if (hasDebugFile()) done([&] { writeDebugLine(depth, {name, ":\n"}); });
}

bool _tvLogger::leaveContext() {
    if (null_) return true;
    const std::lock_guard guard(lock_);
    leave();
    return true;
}

void _tvLogger::leave() {
    if (depth_ > 0) --depth_;
    const uint32_t elapsedMs = closeContext();
    if (!hasDebugFile()) return;
    done([&] {
        if (elapsedMs != 0) {
            writeDebugLine(depth_, {"(leaveContext ", std::to_string(elapsedMs), "ms)\n"});
        } else {
            writeDebugLine(depth_, {"(leaveContext)\n"});
        }
    });
}

// How long the innermost context was open, as far as that is measured.
uint32_t _tvLogger::closeContext() {
    if (dropped_ > 0) {
        --dropped_;
        return 0;
    }
    if (open_.empty()) return 0;
    const OpenContext context = open_.back();
    open_.pop_back();
    const uint64_t elapsed = verbose_ ? plat::sysClock().tickMs() - context.startTickMs : 0;
    const uint32_t elapsedMs = static_cast<uint32_t>(elapsed);
    errorLog_.closeContext(elapsedMs, verbose_ && context.show);
    return elapsedMs;
}

bool _tvLogger::hasOption(std::string_view keyword) const {
    return options_.find(keyword) != std::string::npos;
}

void _tvLogger::setDebugLogPath(std::string_view utf8Path) {
    const std::lock_guard guard(lock_);
    debugLogPath_ = utf8Path;
}

void _tvLogger::layOverDebugLogPath(const std::string* utf8Path) {
    const std::lock_guard guard(lock_);
    overDebugLogPath_ = utf8Path;
}

void _tvLogger::writeDebugLine(int depth, std::initializer_list<std::string_view> parts) const {
    std::string text(4 * static_cast<size_t>(depth), ' ');  // four blanks to a level, in the file
    for (const std::string_view part : parts) {
        text += part;
    }
    plat::SysFile file;
    if (file.openAppend(debugPath())) {
        file.write(text.data(), text.size());
    }
}

}  // namespace tv
