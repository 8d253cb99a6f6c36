// The command line of the doctor: words in, what is to be looked at out. Pure.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "emailsend/Arguments.h"

namespace emailsend::doctor {

extern const char* const kUsage;

// All text is UTF-8.
struct Options {
    bool help = false;
    std::string library;  // empty: the one beside the program
    std::string host;     // empty: that of the settings file
    int32_t port = 0;     // 0: that of the settings file, or 25, 465 and 587
    Tls tls = Tls::AsOffered;
    std::string user;
    std::string passwordFile;
    std::string authMethod;
    std::string domain;
    bool loginInClear = false;
    std::string from;
    std::string to;
    bool send = false;
    uint32_t limitMs = 0;  // of a step; 0: as long as a send would wait
    bool json = false;
    std::string write;  // the settings file to be made
};

// False, with a sentence in error, where the words are not understood.
bool parseOptions(const std::vector<std::string>& words, Options& out, std::string& error);

}  // namespace emailsend::doctor
