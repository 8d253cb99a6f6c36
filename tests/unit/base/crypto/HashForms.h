// The forms of the hashes for FormTest.
#pragma once

#include "base/crypto/Sha1.h"
#include "base/crypto/Sha2.h"
#include "tests/unit/base/crypto/FormTest.h"

namespace tv::test {

template <>
inline crypto::Dispatch<crypto::Sha1Form>& dispatchOf<crypto::Sha1Form>() {
    return crypto::sha1Forms;
}

template <>
inline crypto::Dispatch<crypto::Sha256Form>& dispatchOf<crypto::Sha256Form>() {
    return crypto::sha256Forms;
}

template <class Form, class Core>
struct CountedHash {
    static inline int calls;
    static inline const Form* form;

    static Form wrap(const Form& wrapped) {
        form = &wrapped;
        return {wrapped.name, wrapped.usable,
                [](typename Core::State& state, const uint8_t* blocks, size_t count) {
                    ++calls;
                    form->compress(state, blocks, count);
                }};
    }
};

template <>
struct Counted<crypto::Sha1Form> : CountedHash<crypto::Sha1Form, crypto::Sha1Core> {};

template <>
struct Counted<crypto::Sha256Form> : CountedHash<crypto::Sha256Form, crypto::Sha256Core> {};

}  // namespace tv::test
