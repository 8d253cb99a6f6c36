// The inner loop of big multiplications, in the forms the machine may offer.
#pragma once

#include "base/crypto/Limb.h"

namespace tv::crypto {

// accumulator[0..n) += a[0..n) * factor; the limb carried out is returned.
using MulAddRow = Limb (*)(Limb* accumulator, const Limb* a, size_t n, Limb factor);

Limb mulAddRowPortable(Limb* accumulator, const Limb* a, size_t n, Limb factor);

// The form in use.
MulAddRow mulAddRowForm();

// accumulator[0..n) -= a[0..n) * factor; the limb borrowed is returned.
Limb mulSubRow(Limb* accumulator, const Limb* a, size_t n, Limb factor);

}  // namespace tv::crypto
