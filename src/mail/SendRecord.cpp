// The line and its escapes; files that are written by several at once, and of which only so many
// are kept.
#include "mail/SendRecord.h"

#include <algorithm>
#include <vector>

#include "base/DateTime.h"
#include "platform/SysClock.h"

namespace tv {
namespace {

constexpr std::string_view kFailureEnding = ".log";

std::string escaped(std::string_view value) {
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    std::string out;
    bool plain = !value.empty();
    for (const char c : value) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == ' ' || c == '=' || c == '"' || c == '\\' || byte < ' ' || byte == 0x7F)
            plain = false;
        if (byte < ' ' || byte == 0x7F) {
            out += "\\x";
            out += kDigits[byte >> 4];
            out += kDigits[byte & 15];
        } else {
            if (c == '"' || c == '\\') out += '\\';
            out += c;
        }
    }
    return plain ? out : '"' + out + '"';
}

void add(std::string_view name, std::string_view value, std::string& line) {
    if (value.empty()) return;
    line += ' ';
    line += name;
    line += '=';
    line += escaped(value);
}

std::string_view outcomeOf(const SendRecord& record, const Failure& failure) {
    if (!failure) return record.isTest ? "test" : "sent";
    switch (failure.repeat()) {
        case Repeat::RefusedForNow:
            return "refused-for-now";
        case Repeat::RefusedForGood:
            return "refused";
        case Repeat::Unknown:
            return "unknown";
        case Repeat::NothingSent:
            break;
    }
    return "not-sent";
}

std::string secondsOf(uint64_t ms) {
    const std::string fraction = std::to_string(1000 + ms % 1000);
    return std::to_string(ms / 1000) + '.' + fraction.substr(1);
}

// Who gave the open file its other name keeps no claim on it.
bool isStillCalled(const std::string& path, const plat::SysFile& file) {
    plat::FileStamp open, called;
    return !file.stamp(open) || !plat::fileStamp(path, called) || open.identity == called.identity;
}

// Another process may be writing, or giving the file its other name.
bool openForLine(const std::string& path, plat::SysFile& file) {
    constexpr int kLooks = 20;
    constexpr uint32_t kLookMs = 50;
    for (int look = 0; look < kLooks; ++look) {
        if (!file.openAppend(path)) return false;
        if (file.tryLock() && isStillCalled(path, file)) return true;
        file.close();
        plat::sysClock().sleepMs(kLookMs);
    }
    return file.openAppend(path);
}

}  // namespace

std::string sendLine(const SendRecord& record, const SmtpSend& send, const Failure& failure) {
    std::string line = "time=" + logDate(plat::sysClock().localTime());
    add("outcome", outcomeOf(record, failure), line);
    add("server", record.server, line);
    add("address", record.address, line);
    add("tls", record.tls, line);
    add("login", record.login, line);
    add("sender", send.fromAddress, line);
    for (const auto& [recipient, code] : send.codes) {
        add("to", recipient + ' ' + std::to_string(code), line);
    }
    if (send.codes.empty()) {  // no server was asked about them
        for (const std::string& recipient : send.recipients) {
            add("to", recipient, line);
        }
    }
    add("bytes", std::to_string(send.mimeSize), line);
    add("seconds", secondsOf(record.ms), line);
    add("reply", failure ? std::string_view() : send.finalReply, line);
    add("failure", failure ? failure.text() : std::string_view(), line);
    return line + '\n';
}

void appendToSends(LogBase& log, const std::string& path, uint64_t most, const std::string& line) {
    plat::SysFile file;
    bool good = openForLine(path, file);
    uint64_t size = 0;
    if (good && most > 0 && file.size(size) && size > 0 && size + line.size() > most) {
        // Under the claim, so that one process does it: the others find the new file.
        plat::renameFile(path, path + ".1");
        file.close();
        good = openForLine(path, file);
    }
    good = good && file.write(line.data(), line.size());
    if (!file.close() || !good) log.logInfo("The log of sends could not be written.");
}

std::string openFresh(const std::string& folder, std::string_view ending, plat::SysFile& file) {
    constexpr int kMost = 1000;  // in one tick of the clock: something else is wrong
    const std::string front = folder + '/' + std::to_string(plat::sysClock().fileTimeUtc()) + '-';
    std::string path;
    for (int number = 1; number <= kMost; ++number) {
        path = front + std::to_string(number) + std::string(ending);
        uint64_t size = 0;
        if (!file.openAppend(path)) break;
        if (file.tryLock() && file.size(size) && size == 0) break;
        file.close();
    }
    return path;
}

void keepFailure(const std::string& folder, size_t keep, std::string_view text) {
    plat::SysFile file;
    openFresh(folder, kFailureEnding, file);
    if (!file.isOpen()) return;
    file.write(text.data(), text.size());
    file.close();
    std::vector<std::string> names = plat::namesIn(folder);
    // Only what openFresh made is ours to remove.
    std::erase_if(names, [](const std::string& name) {
        return !name.ends_with(kFailureEnding) ||
               name.find_first_not_of("0123456789-") != name.size() - kFailureEnding.size();
    });
    std::ranges::sort(names);
    for (size_t i = 0; i + keep < names.size(); ++i) {
        plat::removeFile(folder + '/' + names[i]);
    }
}

}  // namespace tv
