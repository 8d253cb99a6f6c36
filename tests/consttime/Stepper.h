// Follows the sequence of instructions that a piece of work runs through, for processors whose
// instructions valgrind does not know. A breakpoint stands on every instruction that may continue
// elsewhere than behind itself, which is then run by single steps. What lies between is straight
// on, so equal sequences of stops are equal sequences of instruction addresses.
//
// Nothing in the stepper's functions may hit a breakpoint: run.py leaves out functions with
// "stepper" in their name.
#pragma once

#include <sys/mman.h>
#include <ucontext.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <functional>
#include <iostream>
#include <vector>

extern "C" const char __executable_start, etext;

namespace tv::stepper {

#ifdef __x86_64__
constexpr int kIp = REG_RIP;
#else
constexpr int kIp = REG_EIP;
#endif
constexpr greg_t kTrapFlag = 0x100;
constexpr uint8_t kBreakpoint = 0xcc;

// The stops of a run: how many, and a hash of their addresses in order.
using Journal = std::pair<size_t, uint64_t>;

inline uint8_t* const start =
    const_cast<uint8_t*>(reinterpret_cast<const uint8_t*>(&__executable_start));
inline uint8_t* originals;            // the code without breakpoints
inline std::vector<uint32_t> places;  // their offsets from the start
inline uint8_t* stepping;             // the instruction that is being run by single steps
inline Journal journal;

inline void onTrap(int, siginfo_t*, void* context) {
    greg_t* registers = static_cast<ucontext_t*>(context)->uc_mcontext.gregs;
    uint8_t* ip = reinterpret_cast<uint8_t*>(registers[kIp]);
    journal = {journal.first + 1,
               (journal.second ^ reinterpret_cast<uintptr_t>(ip)) * 0x9e3779b97f4a7c15};
    if (!stepping) {
        stepping = ip - 1;
        *stepping = originals[stepping - start];
        registers[kIp] = reinterpret_cast<greg_t>(stepping);
        registers[REG_EFL] |= kTrapFlag;
    } else if (ip != stepping) {  // else a repeated instruction, which goes on
        *stepping = kBreakpoint;
        stepping = nullptr;
        registers[REG_EFL] &= ~kTrapFlag;
    }
}

// Reads the places from standard input, in hexadecimal digits. False if there are none.
inline bool loadPlaces() {
    const size_t size = static_cast<size_t>(&etext - &__executable_start);
    originals = new uint8_t[size];
    std::copy(start, start + size, originals);
    for (uint32_t offset; std::cin >> std::hex >> offset;) {
        if (offset < size) places.push_back(offset);
    }
    const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    struct sigaction action {};
    action.sa_sigaction = onTrap;
    action.sa_flags = SA_SIGINFO;
    sigaction(SIGTRAP, &action, nullptr);
    return !places.empty() && mprotect(start, (size + page - 1) / page * page,
                                       PROT_READ | PROT_WRITE | PROT_EXEC) == 0;
}

// Stops cost microseconds: a run may have but one place in `shares`, those of share `share`.
__attribute__((noinline)) inline Journal run(const std::function<void()>& work, size_t share,
                                             size_t shares) {
    journal = {};
    for (size_t i = share; i < places.size(); i += shares) {
        start[places[i]] = kBreakpoint;
    }
    work();
    for (const uint32_t offset : places) {
        start[offset] = originals[offset];
    }
    return journal;
}

}  // namespace tv::stepper
