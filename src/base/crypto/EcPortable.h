// EcOps without vectors, for every curve.
#pragma once

#include <cstring>
#include <vector>

#include "base/Hex.h"
#include "base/crypto/EcForms.h"
#include "base/crypto/EcParams.h"
#include "base/crypto/MontField.h"
#include "base/crypto/WeierstrassPublic.h"

namespace tv::crypto {

inline std::vector<uint8_t> bytesOfParam(const char* digits) {
    return *hexDecode(digits);
}

template <class Field>
typename Field::Element fieldParam(const Field& field, const char* digits) {
    typename Field::Element plain;
    limbsFromBytes(plain.data(), plain.size(), bytesOfParam(digits));
    return field.enter(plain);
}

template <size_t kBits, const EcParams& params>
class EcPortable {
    using Field = MontField<limbsForBits(kBits)>;
    using Curve = Weierstrass<Field>;
    using Affine = typename Curve::Affine;
    using Element = typename Curve::Element;
    using Scalar = typename Curve::Scalar;
    static constexpr size_t kBytes = (kBits + 7) / 8;

public:
    static void multiply(uint8_t* out, const uint8_t* scalar, const uint8_t* point) {
        const EcPortable& self = instance();
        self.multiplyPoint(out, scalar, self.affine(point));
    }

    static void multiplyBase(uint8_t* out, const uint8_t* scalar) {
        const EcPortable& self = instance();
        self.multiplyPoint(out, scalar, self.base_);
    }

    static bool sum(uint8_t* x, uint8_t* zz, const uint8_t* baseFactor, const uint8_t* factor,
                    const uint8_t* point) {
        static const WeierstrassPublic<Field>& adder =
            *new WeierstrassPublic<Field>(instance().curve_, instance().base_);
        const EcPortable& self = instance();
        const auto total = adder.sum(number(baseFactor), number(factor), self.affine(point));
        self.put(x, total.x);
        self.put(zz, self.field_.square(total.z));
        return true;
    }

private:
    EcPortable()
        : field_(bytesOfParam(params.p)),
          curve_(field_, fieldParam(field_, params.a)),
          base_{fieldParam(field_, params.gx), fieldParam(field_, params.gy)} {
        limbsFromBytes(order_.data(), order_.size(), bytesOfParam(params.n));
    }

    // Made on first use, never destroyed.
    static const EcPortable& instance() {
        static const EcPortable& self = *new EcPortable;
        return self;
    }

    static Scalar number(const uint8_t* bytes) {
        Scalar r;
        limbsFromBytes(r.data(), r.size(), {bytes, kBytes});
        return r;
    }

    Affine affine(const uint8_t* point) const {
        return {field_.enter(number(point)), field_.enter(number(point + kBytes))};
    }

    void put(uint8_t* out, const Element& a) const {
        Element plain = field_.leave(a);
        limbsToBytes({out, kBytes}, plain.data(), plain.size());
        plat::wipe(plain.data(), sizeof plain);
    }

    void multiplyPoint(uint8_t* out, const uint8_t* scalar, const Affine& p) const {
        Scalar k = number(scalar);
        Affine result = curve_.toAffine(curve_.multiply(k, order_, p));
        put(out, result.x);
        put(out + kBytes, result.y);
        plat::wipe(k.data(), sizeof k);
        plat::wipe(static_cast<void*>(&result), sizeof result);
    }

    Field field_;
    Curve curve_;
    Affine base_;
    Scalar order_;
};

template <size_t kBits, const EcParams& params>
inline constexpr EcOps kEcPortableOps = {EcPortable<kBits, params>::multiply,
                                         EcPortable<kBits, params>::multiplyBase,
                                         EcPortable<kBits, params>::sum};

}  // namespace tv::crypto
