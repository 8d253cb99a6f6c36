// The parts of the x86 forms of ChaCha20-Poly1305, which stand in files of their own.
#pragma once

#include "base/crypto/ChaCha20Poly1305.h"

namespace tv::crypto {

void applyChaChaAvx2(ChaChaState& state, const uint8_t* in, uint8_t* out, size_t count);
void applyChaChaAvx512(ChaChaState& state, const uint8_t* in, uint8_t* out, size_t count);
void absorbPoly1305Avx2(Poly1305State& state, const uint8_t* blocks, size_t count);
void absorbPoly1305Avx512(Poly1305State& state, const uint8_t* blocks, size_t count);

}  // namespace tv::crypto
