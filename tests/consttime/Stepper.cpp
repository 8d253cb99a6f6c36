#include "tests/consttime/Stepper.h"

#include <sys/mman.h>
#include <ucontext.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <vector>

extern "C" const char __executable_start, etext;

namespace tv::stepper {

namespace {

#ifdef __x86_64__
constexpr int kIp = REG_RIP, kCx = REG_RCX;
#else
constexpr int kIp = REG_EIP, kCx = REG_ECX;
#endif
constexpr greg_t kTrapFlag = 0x100;
constexpr uint8_t kBreakpoint = 0xcc;
constexpr size_t kMaxEntries = size_t{1} << 22;

struct Place {
    uint32_t offset;
    uint8_t original;
};

std::vector<Place> places;
uint8_t* kinds;      // by offset: what stands there, 0 for nothing
uint8_t* originals;  // by offset
uint32_t* journal;
size_t length, known;
bool comparing, differs, overrun;
uint8_t* stepping;  // the instruction that is being run by single steps

uint8_t* start() {
    return const_cast<uint8_t*>(reinterpret_cast<const uint8_t*>(&__executable_start));
}

void note(uintptr_t value) {
    const auto entry = static_cast<uint32_t>(value);
    if (length == kMaxEntries) {
        overrun = true;
        return;
    }
    if (!comparing) {
        journal[length] = entry;
    } else if (length >= known || journal[length] != entry) {
        differs = true;
    }
    ++length;
}

// Conditions 0 to 15 of the processor's manual, the odd ones being the opposites.
bool holds(unsigned condition, greg_t flags) {
    const bool carry = (flags & 1) != 0, parity = (flags & 4) != 0, zero = (flags & 0x40) != 0;
    const bool sign = (flags & 0x80) != 0, overflow = (flags & 0x800) != 0;
    bool yes = false;
    switch (condition >> 1) {
        case 0:
            yes = overflow;
            break;
        case 1:
            yes = carry;
            break;
        case 2:
            yes = zero;
            break;
        case 3:
            yes = carry || zero;
            break;
        case 4:
            yes = sign;
            break;
        case 5:
            yes = parity;
            break;
        case 6:
            yes = sign != overflow;
            break;
        default:
            yes = zero || sign != overflow;
            break;
    }
    return yes != ((condition & 1) != 0);
}

// The instruction is 7x with a displacement of one byte or 0f 8x with one of four.
void jump(uint8_t* at, uint8_t first, greg_t* registers) {
    const bool isLong = first == 0x0f;
    const bool taken = holds((isLong ? at[1] : first) & 15U, registers[REG_EFL]);
    uint8_t* next = at + (isLong ? 6 : 2);
    int32_t distance = static_cast<int8_t>(at[1]);
    if (isLong) __builtin_memcpy(&distance, at + 2, 4);
    note(reinterpret_cast<uintptr_t>(at) * 2 + taken);
    registers[kIp] = reinterpret_cast<greg_t>(taken ? next + distance : next);
}

void onTrap(int, siginfo_t*, void* context) {
    greg_t* registers = static_cast<ucontext_t*>(context)->uc_mcontext.gregs;
    uint8_t* ip = reinterpret_cast<uint8_t*>(registers[kIp]);
    if (stepping) {
        note(reinterpret_cast<uintptr_t>(ip));
        if (ip == stepping) return;  // a repeated instruction goes on
        *stepping = kBreakpoint;
        stepping = nullptr;
        registers[REG_EFL] &= ~kTrapFlag;
        return;
    }
    uint8_t* at = ip - 1;
    const auto offset = static_cast<size_t>(at - start());
    if (kinds[offset] == 'c') {
        jump(at, originals[offset], registers);
        return;
    }
    note(static_cast<uintptr_t>(registers[kCx]) * (kinds[offset] == 'r'));
    *at = originals[offset];
    stepping = at;
    registers[kIp] = reinterpret_cast<greg_t>(at);
    registers[REG_EFL] |= kTrapFlag;
}

size_t run(const std::function<void()>& work, Watch watch) {
    length = 0;
    differs = overrun = false;
    for (size_t i = watch.share; i < places.size(); i += watch.shares) {
        start()[places[i].offset] = kBreakpoint;
    }
    work();
    for (const Place& place : places) {
        start()[place.offset] = place.original;
    }
    if (overrun) {
        std::fprintf(stderr, "the journal is full\n");
        std::exit(1);
    }
    return length;
}

}  // namespace

bool loadPlaces() {
    const size_t size = static_cast<size_t>(&etext - &__executable_start);
    kinds = static_cast<uint8_t*>(std::calloc(2, size));
    originals = kinds + size;
    journal = static_cast<uint32_t*>(std::calloc(kMaxEntries, sizeof(uint32_t)));
    char kind;
    unsigned offset;
    while (std::scanf(" %c %x", &kind, &offset) == 2) {
        if (offset >= size) continue;
        kinds[offset] = static_cast<uint8_t>(kind);
        originals[offset] = start()[offset];
        places.push_back({offset, originals[offset]});
    }
    const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    struct sigaction action {};
    action.sa_sigaction = onTrap;
    action.sa_flags = SA_SIGINFO;
    sigaction(SIGTRAP, &action, nullptr);
    return !places.empty() && mprotect(start(), (size + page - 1) / page * page,
                                       PROT_READ | PROT_WRITE | PROT_EXEC) == 0;
}

size_t write(const std::function<void()>& work, Watch watch) {
    comparing = false;
    return known = run(work, watch);
}

size_t compare(const std::function<void()>& work, Watch watch) {
    comparing = true;
    const size_t entries = run(work, watch);
    return differs || entries != known ? 0 : entries;
}

}  // namespace tv::stepper
