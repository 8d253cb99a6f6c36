// Every curve with every form of its arithmetic, for parameterised tests. The form is forced, and
// its use is counted.
#pragma once

#include "base/crypto/EcCurve.h"
#include "tests/unit/base/crypto/Vectors.h"

namespace tv::test {

struct EcCase {
    const char* name;
    crypto::EcCurveId id;
    const crypto::EcParams* params;
    const crypto::EcOps* crypto::EcForm::*member;  // null: this curve has no forms
    const crypto::EcForm* form = &crypto::kEcPortable;
};

inline std::ostream& operator<<(std::ostream& out, const EcCase& c) {
    return out << c.name << '_' << c.form->name;
}

inline std::vector<EcCase> ecCases() {
    using namespace crypto;
    using enum EcCurveId;
    std::vector<EcCase> all;
    for (EcCase c : {
             EcCase{"secp256r1", kSecp256r1, &crypto::kSecp256r1, &EcForm::secp256r1},
             EcCase{"secp384r1", kSecp384r1, &crypto::kSecp384r1, &EcForm::secp384r1},
             EcCase{"secp521r1", kSecp521r1, &crypto::kSecp521r1, nullptr},
             EcCase{"brainpoolP256r1", kBrainpoolP256r1, &crypto::kBrainpoolP256r1, nullptr},
             EcCase{"brainpoolP384r1", kBrainpoolP384r1, &crypto::kBrainpoolP384r1, nullptr},
             EcCase{"brainpoolP512r1", kBrainpoolP512r1, &crypto::kBrainpoolP512r1, nullptr},
         }) {
        all.push_back(c);
        for (const EcForm* form : ecForms.forms()) {
            c.form = form;
            // A form may take the portable functions for one of its curves.
            if (c.member && form->*c.member != &kEcPortableOps) all.push_back(c);
        }
    }
    return all;
}

class EcFormTest : public testing::TestWithParam<EcCase> {
protected:
    void SetUp() override {
        const EcCase& c = GetParam();
        if (!c.form->usable()) {
            GTEST_SKIP() << "this machine cannot run the form " << c.form->name;
        }
        if (!c.member) return;
        using crypto::EcOps;
        countedOps_ =
            counting<&EcOps::multiply, &EcOps::multiplyBase, &EcOps::sum>(*(c.form->*c.member));
        counted_ = *c.form;
        counted_.*c.member = &countedOps_;
        crypto::ecForms.force(&counted_);
    }

    void TearDown() override {
        crypto::ecForms.force(nullptr);
        if (GetParam().member && !IsSkipped()) {
            EXPECT_GT(Calls<crypto::EcOps>::count, 0) << "another form did the work";
        }
    }

    // Wycheproof files, which there are for the curves that TLS uses most.
    std::vector<std::string> files(const std::string& prefix, const std::string& suffix) const {
        if (name_.starts_with("brainpool")) return {};
        return {prefix + name_ + suffix};
    }

    // Scalars: a small number, the order less one, and one below every order.
    Bytes small(uint8_t k) const {
        Bytes scalar(curve_.fieldBytes());
        scalar.back() = k;
        return scalar;
    }
    Bytes belowOrder(uint8_t k) const {
        crypto::EcNumber number = weierstrass_.order().modulus();
        number[0] -= k;
        Bytes scalar(curve_.fieldBytes());
        weierstrass_.put(scalar.data(), number);
        return scalar;
    }
    Bytes scalarOf(uint32_t seed) const {
        Bytes scalar = randomBytesOf(curve_.fieldBytes(), seed);
        scalar[0] &= 1;
        return scalar;
    }
    Bytes multiple(const Bytes& scalar) const {
        Bytes point(curve_.pointBytes());
        EXPECT_TRUE(curve_.multiplyBase(point, scalar));
        return point;
    }

    const std::string name_ = GetParam().name;
    const crypto::EcCurve& curve_ = crypto::ecCurve(GetParam().id);
    const crypto::Weierstrass weierstrass_{*GetParam().params};

private:
    crypto::EcOps countedOps_{};
    crypto::EcForm counted_{};
};

}  // namespace tv::test
