// What the system says of this machine and this process.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/Replaceable.h"

namespace tv::plat {

class SysHost {
public:
    virtual ~SysHost() = default;
    // The computer name (Windows: the NetBIOS name; POSIX: the host name up to the first dot),
    // UTF-8, as it was when it was first asked for.
    virtual std::string computerName() = 0;
    // The name by which DNS knows this machine, where it has one with a domain that is not .local
    // or .localdomain; else empty. ASCII, as it was when it was first asked for; no network is.
    virtual std::string dnsName() = 0;
    // The ANSI code page. POSIX: 65001 unless LC_ALL, LC_CTYPE or LANG names another charset.
    virtual uint32_t ansiCodePage() = 0;
    virtual uint32_t oemCodePage() = 0;
    // What 8-bit text files are in here that do not say it themselves. POSIX: 0, for anything;
    // files come from everywhere, and the locale is the server's and not that of who wrote them.
    virtual uint32_t textFileCodePage() = 0;
};

SysHost& sysHost();

// For tests: as replaceSysClock.
inline SysHost* replaceSysHost(SysHost* host) {
    return Replaceable<SysHost>::replace(host);
}

// The name itself where it is one of hosts in DNS with a domain, in ASCII; else empty.
std::string nameInDns(const std::string& name);

// Of a host name of POSIX: itself where it has a domain, or the first name with one in the first
// line of a hosts file that has the host name. Empty where it is no nameInDns.
std::string nameInDns(const std::string& hostName, std::string_view hostsFile);

// The code page that a POSIX locale name ("hu_HU.ISO-8859-2") selects; 65001 where none is named or
// the name is C, POSIX, us-ascii or unknown.
uint32_t codePageOfLocale(const std::string& locale);

}  // namespace tv::plat
