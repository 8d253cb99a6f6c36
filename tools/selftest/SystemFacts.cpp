// Windows' own version and not the one that it tells old programs; the processor by its own words.
#include "selftest/SystemFacts.h"

#include <cpuid.h>
#include <windows.h>

#include <cstring>
#include <thread>

#include "base/CpuFeatures.h"
#include "base/Hex.h"
#include "base/crypto/Sha2.h"
#include "platform/SysFile.h"
#include "platform/SysHost.h"
#include "platform/SysVersion.h"

namespace selftest {
namespace {

template <class Function>
Function ofNtdll(const char* name) {
    const auto found = GetProcAddress(GetModuleHandleW(L"ntdll.dll"), name);
    return reinterpret_cast<Function>(reinterpret_cast<void (*)()>(found));
}

std::string dotted(unsigned long major, unsigned long minor, unsigned long build) {
    return std::to_string(major) + "." + std::to_string(minor) + "." + std::to_string(build);
}

std::string windowsVersion() {
    OSVERSIONINFOEXW info{};
    info.dwOSVersionInfoSize = sizeof info;
    const auto tell = ofNtdll<LONG(WINAPI*)(OSVERSIONINFOEXW*)>("RtlGetVersion");
    const tv::plat::SystemVersion told = tv::plat::systemVersion();
    std::string text = tell && tell(&info) == 0
                           ? dotted(info.dwMajorVersion, info.dwMinorVersion, info.dwBuildNumber)
                           : "of an unknown version";
    if (info.wServicePackMajor) text += " SP " + std::to_string(info.wServicePackMajor);
    if (info.wProductType > VER_NT_WORKSTATION) text += " (server)";
    return text + ", tells programs " + dotted(told.major, told.minor, told.build);
}

// Windows has no such function.
using WineVersion = const char*(__cdecl*)();
WineVersion wineVersion() {
    return ofNtdll<WineVersion>("wine_get_version");
}

std::string systemWidth() {
    SYSTEM_INFO info{};
    GetNativeSystemInfo(&info);
    const bool wide = info.wProcessorArchitecture != PROCESSOR_ARCHITECTURE_INTEL;
    return (wide ? "64-bit system, " : "32-bit system, ") + std::to_string(8 * sizeof(void*)) +
           "-bit program";
}

std::string processorName() {
    unsigned words[12] = {};
    for (unsigned i = 0; i < 3; ++i)
        __get_cpuid(0x80000002 + i, &words[4 * i], &words[4 * i + 1], &words[4 * i + 2],
                    &words[4 * i + 3]);
    char name[sizeof words + 1] = {};
    std::memcpy(name, words, sizeof words);
    return name;
}

std::string processorFeatures() {
    const tv::CpuFeatures& f = tv::cpuFeatures();
    const std::pair<const char*, bool> all[] = {
        {"sse2", f.sse2}, {"ssse3", f.ssse3},    {"sse4.1", f.sse41},  {"pclmul", f.pclmul},
        {"aes", f.aesNi}, {"sha", f.shaNi},      {"avx", f.avx},       {"avx2", f.avx2},
        {"bmi2", f.bmi2}, {"adx", f.adx},        {"avx512", f.avx512}, {"vbmi", f.avx512Vbmi},
        {"vaes", f.vaes}, {"vpclmul", f.vpclmul}};
    std::string text;
    for (const auto& [name, there] : all)
        text += there ? std::string(" ") + name : "";
    return text;
}

}  // namespace

bool isWine() {
    return wineVersion() != nullptr;
}

std::string systemFacts() {
    return "System: Windows " + windowsVersion() + "; " +
           (isWine() ? std::string("Wine ") + wineVersion()() : "not Wine") + "; " + systemWidth() +
           "; code pages " + std::to_string(tv::plat::sysHost().ansiCodePage()) + " and " +
           std::to_string(tv::plat::sysHost().oemCodePage()) + "\n" +
           "Processor: " + processorName() + "; " +
           std::to_string(std::thread::hardware_concurrency()) + " threads;" + processorFeatures() +
           "\n";
}

std::string libraryFacts(const std::string& path) {
    constexpr size_t kMost = 64 * 1024 * 1024;
    std::string bytes;
    if (!tv::plat::readFileStart(path, kMost, bytes))
        return "Library: none beside this program: unpack the whole archive first\n";
    const auto digest =
        tv::crypto::Sha256::of({reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()});
    return "Library: " + std::to_string(bytes.size()) + " bytes, SHA-256 " + tv::hexLower(digest) +
           "\n";
}

}  // namespace selftest
