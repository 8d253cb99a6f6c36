// The primitives whose forms are tested one by one.
#pragma once

#include "base/crypto/AesGcm.h"
#include "base/crypto/ChaCha20Poly1305.h"
#include "base/crypto/Sha1.h"
#include "base/crypto/Sha2.h"
#include "base/crypto/X25519.h"
#include "tests/fixtures/FormTest.h"

namespace tv::test {

TV_FORMS(crypto::AesForm, crypto::aesForms, &Table::encrypt, &Table::decrypt);
TV_FORMS(crypto::GcmForm, crypto::gcmForms, &Table::encrypt, &Table::decrypt);
TV_FORMS(crypto::ChaChaForm, crypto::chaChaForms, &Table::apply, &Table::absorb);
TV_FORMS(crypto::Sha1Form, crypto::sha1Forms, &Table::compress);
TV_FORMS(crypto::Sha256Form, crypto::sha256Forms, &Table::compress);
TV_FORMS(crypto::X25519Form, crypto::x25519Forms, &Table::multiply);

}  // namespace tv::test
