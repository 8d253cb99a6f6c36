// What the headers of the standard library call where they throw, without its exceptions that own a
// string (see PlainException.h). Part of the DLL alone. The library's versions lie in one object
// file of its archive: where a header of another version calls one that is missing here, that file
// joins and the link fails with names defined twice.
#include <new>

#include "plugin/PlainException.h"

namespace std {

// NOLINTBEGIN(bugprone-reserved-identifier): the library's own names.
[[noreturn]] void __throw_bad_alloc();
[[noreturn]] void __throw_bad_array_new_length();
[[noreturn]] void __throw_bad_function_call();
[[noreturn]] void __throw_length_error(const char* reason);
[[noreturn]] void __throw_logic_error(const char* reason);
[[noreturn]] void __throw_out_of_range_fmt(const char* reason, ...);
[[noreturn]] void __throw_system_error(int error);

void __throw_bad_alloc() {
    throw bad_alloc();
}

void __throw_bad_array_new_length() {
    throw bad_alloc();  // the base class of its own
}

void __throw_bad_function_call() {
    throw tv::PlainException("An empty function was called.");
}

void __throw_length_error(const char* reason) {
    throw tv::PlainException(reason);
}

void __throw_logic_error(const char* reason) {
    throw tv::PlainException(reason);
}

// The numbers are left out; the reason, with the names of its function and of theirs, says enough.
void __throw_out_of_range_fmt(const char* reason, ...) {
    throw tv::PlainException(reason);
}

void __throw_system_error(int) {
    throw tv::PlainException("The system refused a lock.");
}
// NOLINTEND(bugprone-reserved-identifier)

}  // namespace std
