#include "base/crypto/LimbRow.h"

namespace tv::crypto {

Limb mulAddRowPortable(Limb* accumulator, const Limb* a, size_t n, Limb factor) {
    Limb carry = 0;
    for (size_t i = 0; i < n; ++i) {
        accumulator[i] = mulAdd(a[i], factor, accumulator[i], carry);
    }
    return carry;
}

MulAddRow mulAddRowForm() {
    return mulAddRowPortable;
}

Limb mulSubRow(Limb* accumulator, const Limb* a, size_t n, Limb factor) {
    Limb carry = 0, borrow = 0;
    for (size_t i = 0; i < n; ++i) {
        const Limb low = mulAdd(a[i], factor, 0, carry);
        accumulator[i] = subBorrow(accumulator[i], low, borrow);
    }
    return carry + borrow;
}

}  // namespace tv::crypto
