// The forms of ChaCha20-Poly1305 for FormTest.
#pragma once

#include "base/crypto/ChaCha20Poly1305.h"
#include "tests/unit/base/crypto/FormTest.h"

namespace tv::test {

template <>
inline crypto::Dispatch<crypto::ChaChaForm>& dispatchOf<crypto::ChaChaForm>() {
    return crypto::chaChaForms;
}

template <>
struct Counted<crypto::ChaChaForm> {
    static inline int calls;
    static inline const crypto::ChaChaForm* form;

    static crypto::ChaChaForm wrap(const crypto::ChaChaForm& wrapped) {
        form = &wrapped;
        return {wrapped.name, wrapped.usable,
                [](crypto::ChaChaState& s, const uint8_t* in, uint8_t* out, size_t count) {
                    ++calls;
                    form->apply(s, in, out, count);
                },
                [](crypto::Poly1305State& s, const uint8_t* blocks, size_t count) {
                    ++calls;
                    form->absorb(s, blocks, count);
                }};
    }
};

}  // namespace tv::test
