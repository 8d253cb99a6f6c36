// Follows the sequence of instructions that a piece of work runs through, for processors whose
// instructions valgrind does not know. A breakpoint stands on every instruction that may continue
// elsewhere than behind itself: a conditional jump's condition is judged by the handler, an
// indirect jump or call and a repeated instruction are run by single steps. What lies between is
// straight on, so equal journals are equal sequences of instruction addresses.
//
// Nothing in the stepper's functions may hit a breakpoint: run.py leaves out functions with
// "stepper" in their name.
#pragma once

#include <sys/mman.h>
#include <ucontext.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <vector>

extern "C" const char __executable_start, etext;

namespace tv::stepper {

#ifdef __x86_64__
constexpr int kIp = REG_RIP, kCx = REG_RCX;
#else
constexpr int kIp = REG_EIP, kCx = REG_ECX;
#endif
constexpr greg_t kTrapFlag = 0x100;
constexpr size_t kMaxEntries = size_t{1} << 22;

inline uint8_t* const start =
    const_cast<uint8_t*>(reinterpret_cast<const uint8_t*>(&__executable_start));
inline std::vector<uint32_t> places;  // their offsets from the start
inline uint8_t *kinds, *originals;    // by offset
inline uint32_t* journal;
inline size_t length, known;
inline bool comparing, differs;
inline uint8_t* stepping;  // the instruction that is being run by single steps

inline void note(uintptr_t value) {
    const auto entry = static_cast<uint32_t>(value);
    if (comparing) {
        differs = differs || length >= known || journal[length] != entry;
    } else if (length < kMaxEntries) {
        journal[length] = entry;
    }
    ++length;
}

// Conditions 0 to 15 of the processor's manual, the odd ones being the opposites.
inline bool holds(unsigned condition, greg_t flags) {
    const bool carry = (flags & 1) != 0, parity = (flags & 4) != 0, zero = (flags & 0x40) != 0;
    const bool sign = (flags & 0x80) != 0, overflow = (flags & 0x800) != 0;
    const bool less = sign != overflow;
    const bool even[] = {overflow, carry, zero, carry || zero, sign, parity, less, less || zero};
    return even[condition >> 1] != ((condition & 1) != 0);
}

// The instruction is 7x with a displacement of one byte or 0f 8x with one of four.
inline void jump(uint8_t* at, uint8_t first, greg_t* registers) {
    const bool isLong = first == 0x0f;
    const bool taken = holds((isLong ? at[1] : first) & 15U, registers[REG_EFL]);
    uint8_t* next = at + (isLong ? 6 : 2);
    int32_t distance = static_cast<int8_t>(at[1]);
    if (isLong) __builtin_memcpy(&distance, at + 2, 4);
    note(reinterpret_cast<uintptr_t>(at) * 2 + taken);
    registers[kIp] = reinterpret_cast<greg_t>(taken ? next + distance : next);
}

inline void onTrap(int, siginfo_t*, void* context) {
    greg_t* registers = static_cast<ucontext_t*>(context)->uc_mcontext.gregs;
    uint8_t* ip = reinterpret_cast<uint8_t*>(registers[kIp]);
    if (stepping) {
        note(reinterpret_cast<uintptr_t>(ip));
        if (ip == stepping) return;  // a repeated instruction goes on
        *stepping = 0xcc;
        stepping = nullptr;
        registers[REG_EFL] &= ~kTrapFlag;
        return;
    }
    uint8_t* at = ip - 1;
    const auto offset = static_cast<size_t>(at - start);
    if (kinds[offset] == 'c') return jump(at, originals[offset], registers);
    note(static_cast<uintptr_t>(registers[kCx]) * (kinds[offset] == 'r'));
    *at = originals[offset];
    stepping = at;
    registers[kIp] = reinterpret_cast<greg_t>(at);
    registers[REG_EFL] |= kTrapFlag;
}

// Reads the places from standard input, one to a line: c (conditional jump), r (repeated) or s
// (single step) and the offset in hexadecimal digits. False if there are none.
inline bool loadPlaces() {
    const size_t size = static_cast<size_t>(&etext - &__executable_start);
    kinds = static_cast<uint8_t*>(std::calloc(2, size));
    originals = kinds + size;
    journal = static_cast<uint32_t*>(std::calloc(kMaxEntries, sizeof(uint32_t)));
    char kind;
    unsigned offset;
    while (std::scanf(" %c %x", &kind, &offset) == 2) {
        if (offset >= size) continue;
        kinds[offset] = static_cast<uint8_t>(kind);
        originals[offset] = start[offset];
        places.push_back(offset);
    }
    const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    struct sigaction action {};
    action.sa_sigaction = onTrap;
    action.sa_flags = SA_SIGINFO;
    sigaction(SIGTRAP, &action, nullptr);
    return !places.empty() && mprotect(start, (size + page - 1) / page * page,
                                       PROT_READ | PROT_WRITE | PROT_EXEC) == 0;
}

// Runs the work and writes its journal, or compares with the one written last. Returns the number
// of entries; comparing, 0 if the work took another way. Breakpoints cost microseconds: a run may
// have but one in `shares` of them, those of share `share`.
__attribute__((noinline)) inline size_t run(bool compare, const std::function<void()>& work,
                                            size_t share = 0, size_t shares = 1) {
    comparing = compare;
    length = 0;
    differs = false;
    for (size_t i = share; i < places.size(); i += shares) {
        start[places[i]] = 0xcc;
    }
    work();
    for (const uint32_t offset : places) {
        start[offset] = originals[offset];
    }
    if (length > kMaxEntries) {
        std::fprintf(stderr, "the journal is full\n");
        std::exit(1);
    }
    if (!compare) known = length;
    return differs || length != known ? 0 : length;
}

}  // namespace tv::stepper
