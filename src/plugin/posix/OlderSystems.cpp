// What the headers of the standard library call in the run time of this machine and that of an
// older system does not have. Part of the shared object alone, which shows none of it; glibc 2.28
// and the run time of GCC 7 are enough for the rest.
#include <condition_variable>
#include <new>

// NOLINTBEGIN(bugprone-reserved-identifier): the libraries' own names.

// glibc 2.32: true allows counters without atomic operations. It stays false here, for whether the
// host has one thread alone may change at any time.
char __libc_single_threaded;

namespace std {

// GCC 11; the base class of what the library's own throws.
void __throw_bad_array_new_length() {
    throw bad_alloc();
}

// GCC 12 gave it another version because it may now end by an exception where its thread is
// cancelled.
void condition_variable::wait(unique_lock<mutex>& lock) {
    _M_cond.wait(*lock.mutex());
}

}  // namespace std
// NOLINTEND(bugprone-reserved-identifier)
