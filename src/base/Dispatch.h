// Chooses the form of an algorithm that runs fastest on this machine. A form is a table of
// functions with a name and a question whether the processor can run it.
#pragma once

#include <atomic>
#include <cstddef>
#include <span>

namespace tv {

// Form has the members: const char* name; bool (*usable)(); and the functions.
template <class Form>
class Dispatch {
public:
    // Fastest first; the last one is the portable form, which every machine can run.
    template <size_t kCount>
    constexpr explicit Dispatch(const Form* const (&forms)[kCount]) : forms_(forms) {}

    // Asked at each use (a keyed object asks once), so a limit set on the CPU's features counts.
    const Form& get() const {
        if (const Form* forced = forced_.load(std::memory_order_relaxed)) return *forced;
        for (const Form* form : forms_) {
            if (form->usable()) return *form;
        }
        return *forms_.back();
    }

    std::span<const Form* const> forms() const { return forms_; }

    // For tests and benchmarks: every use from now on takes this form, null ends that. Keyed
    // objects that were made with another form keep it.
    void force(const Form* form) { forced_.store(form, std::memory_order_relaxed); }

private:
    std::span<const Form* const> forms_;
    std::atomic<const Form*> forced_{nullptr};
};

inline bool alwaysUsable() {
    return true;
}

}  // namespace tv
