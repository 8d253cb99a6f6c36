// Every curve with every form of its arithmetic, for parameterised tests. The form is forced, and
// its use is counted.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "base/crypto/EcCurve.h"
#include "base/crypto/EcForms.h"
#include "base/crypto/Hash.h"
#include "tests/unit/base/crypto/FormTest.h"

namespace tv::test {

struct EcCase {
    const char* name;
    crypto::EcCurveId id;
    crypto::HashId hash;
    const crypto::EcOps* crypto::EcForm::*member;  // null: this curve has no forms
    const crypto::EcForm* form;
};

inline std::vector<EcCase> ecCases() {
    using namespace crypto;
    const EcCase curves[] = {
        {"secp256r1", EcCurveId::kSecp256r1, HashId::kSha256, &EcForm::secp256r1, nullptr},
        {"secp384r1", EcCurveId::kSecp384r1, HashId::kSha384, &EcForm::secp384r1, nullptr},
        {"secp521r1", EcCurveId::kSecp521r1, HashId::kSha512, nullptr, &kEcPortable},
        {"brainpoolP256r1", EcCurveId::kBrainpoolP256r1, HashId::kSha256, nullptr, &kEcPortable},
        {"brainpoolP384r1", EcCurveId::kBrainpoolP384r1, HashId::kSha384, nullptr, &kEcPortable},
        {"brainpoolP512r1", EcCurveId::kBrainpoolP512r1, HashId::kSha512, nullptr, &kEcPortable},
    };
    std::vector<EcCase> all;
    for (EcCase c : curves) {
        if (!c.member) all.push_back(c);
        for (const EcForm* form : ecForms.forms()) {
            c.form = form;
            // A form may take the portable functions for one of its curves.
            const bool own =
                c.member && (form == &kEcPortable || form->*c.member != &kEcPortableOps);
            if (own) all.push_back(c);
        }
    }
    return all;
}

inline std::string ecCaseName(const testing::TestParamInfo<EcCase>& info) {
    return std::string(info.param.name) + "_" + info.param.form->name;
}

using crypto::EcOps;

class EcFormTest : public testing::TestWithParam<EcCase> {
protected:
    void SetUp() override {
        const EcCase& c = GetParam();
        if (!c.form->usable()) {
            GTEST_SKIP() << "this machine cannot run the form " << c.form->name;
        }
        if (!c.member) return;
        countedOps_ =
            counting<&EcOps::multiply, &EcOps::multiplyBase, &EcOps::sum>(*(c.form->*c.member));
        counted_ = *c.form;
        counted_.*c.member = &countedOps_;
        crypto::ecForms.force(&counted_);
    }

    void TearDown() override {
        crypto::ecForms.force(nullptr);
        if (GetParam().member && !IsSkipped()) {
            EXPECT_GT(Calls<EcOps>::count, 0) << "another form did the work";
        }
    }

    const crypto::EcCurve& curve_ = crypto::ecCurve(GetParam().id);

private:
    EcOps countedOps_{};
    crypto::EcForm counted_{};
};

}  // namespace tv::test
