// The forms of AES and AES-GCM for FormTest.
#pragma once

#include "base/crypto/AesGcm.h"
#include "tests/unit/base/crypto/FormTest.h"

namespace tv::test {

template <>
inline crypto::Dispatch<crypto::AesForm>& dispatchOf<crypto::AesForm>() {
    return crypto::aesForms;
}

template <>
inline crypto::Dispatch<crypto::GcmForm>& dispatchOf<crypto::GcmForm>() {
    return crypto::gcmForms;
}

template <>
struct Counted<crypto::AesForm> {
    using Key = crypto::AesKey;
    static inline int calls;
    static inline const crypto::AesForm* form;

    static crypto::AesForm wrap(const crypto::AesForm& wrapped) {
        form = &wrapped;
        crypto::AesForm out = wrapped;
        out.encrypt = [](const Key& key, const uint8_t* from, uint8_t* to, size_t count) {
            ++calls;
            form->encrypt(key, from, to, count);
        };
        out.decrypt = [](const Key& key, const uint8_t* from, uint8_t* to, size_t count) {
            ++calls;
            form->decrypt(key, from, to, count);
        };
        return out;
    }
};

template <>
struct Counted<crypto::GcmForm> {
    using Key = crypto::GcmKey;
    using State = crypto::GcmState;
    static inline int calls;
    static inline const crypto::GcmForm* form;

    static crypto::GcmForm wrap(const crypto::GcmForm& wrapped) {
        form = &wrapped;
        crypto::GcmForm out = wrapped;
        out.encrypt = [](const Key& key, State& s, const uint8_t* from, uint8_t* to, size_t count) {
            ++calls;
            form->encrypt(key, s, from, to, count);
        };
        out.decrypt = [](const Key& key, State& s, const uint8_t* from, uint8_t* to, size_t count) {
            ++calls;
            form->decrypt(key, s, from, to, count);
        };
        return out;
    }
};

}  // namespace tv::test
