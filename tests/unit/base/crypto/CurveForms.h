// The forms of X25519 for FormTest.
#pragma once

#include "base/crypto/X25519.h"
#include "tests/unit/base/crypto/FormTest.h"

namespace tv::test {

template <>
inline crypto::Dispatch<crypto::X25519Form>& dispatchOf<crypto::X25519Form>() {
    return crypto::x25519Forms;
}

template <>
struct Counted<crypto::X25519Form> {
    static inline int calls;
    static inline const crypto::X25519Form* form;

    static crypto::X25519Form wrap(const crypto::X25519Form& wrapped) {
        form = &wrapped;
        return {wrapped.name, wrapped.usable,
                [](uint8_t* out, const uint8_t* scalar, const uint8_t* u) {
                    ++calls;
                    form->multiply(out, scalar, u);
                }};
    }
};

}  // namespace tv::test
