// What became of a send, as one line of a log, and the files that an administrator asks for.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "base/Failure.h"
#include "log/LogBase.h"
#include "mail/smtp/SmtpSend.h"
#include "platform/SysFile.h"

namespace tv {

struct SendRecord {
    std::string server;   // host:port
    std::string address;  // numeric; empty where no connection stood
    std::string tls;      // version and suite
    std::string login;    // mechanism and user
    uint64_t ms = 0;
    bool isTest = false;
};

// "time=... server=... ... outcome=sent reply="250 ..."", with its LF. Values with blanks, quotes,
// "=" or control characters stand in quotes, with \ before a quote or a backslash and \xHH for what
// cannot be shown.
std::string sendLine(const SendRecord& record, const SmtpSend& send, const Failure& failure);

// Appends to a file that other processes may append to; beyond most bytes (0: no limit) it goes on
// in a new one and the old one is PATH.1. What cannot be written is told to the log alone.
void appendToSends(LogBase& log, const std::string& path, uint64_t most, const std::string& line);

// Opens a new file "TIME-NUMBER.ending" for writing and returns its path; names are in the order of
// time. Not open where it cannot be written.
std::string openFresh(const std::string& folder, std::string_view ending, plat::SysFile& file);

// Writes the whole log of a failed send and lets the newest keep files of its kind lie there.
void keepFailure(const std::string& folder, size_t keep, std::string_view text);

}  // namespace tv
