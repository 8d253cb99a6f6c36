// Follows the sequence of instructions that a piece of work runs through, for processors whose
// instructions valgrind does not know. A breakpoint stands on every instruction that may continue
// elsewhere than behind itself: a conditional jump's condition is judged by the handler, an
// indirect jump or call and a repeated instruction are run by single steps. What lies between is
// straight on, so equal journals are equal sequences of instruction addresses.
//
// Nothing in this room's stepper functions may hit a breakpoint: run.py leaves out functions with
// "stepper" in their name.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>

namespace tv::stepper {

// Reads the places from standard input, one to a line: c (conditional jump) or s (single step) and
// the offset from the program's start in hexadecimal digits. False if there are none.
bool loadPlaces();

// Breakpoints cost microseconds: a run may have but one in `shares` of them, those of share
// `share`.
struct Watch {
    size_t share = 0, shares = 1;
};

// Runs the work and writes its journal, or compares with the one written last. Returns the number
// of entries; comparing, 0 if the work took another way.
size_t write(const std::function<void()>& work, Watch watch = {});
size_t compare(const std::function<void()>& work, Watch watch = {});

}  // namespace tv::stepper
