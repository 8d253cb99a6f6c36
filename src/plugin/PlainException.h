// An exception whose reason is a literal. Those of <stdexcept> own theirs in a string of the old
// kind, for which a static build carries 90 KB.
#pragma once

#include <exception>

namespace tv {

class PlainException final : public std::exception {
public:
    explicit PlainException(const char* literal) noexcept : reason_(literal) {}
    const char* what() const noexcept override { return reason_; }

private:
    const char* reason_;
};

}  // namespace tv
