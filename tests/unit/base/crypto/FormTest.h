// Runs a test once for each form of a primitive (portable, by special instructions) and proves that
// this form did the work.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <string>

#include "base/crypto/Dispatch.h"

namespace tv::test {

// Counted<Form> gives a copy of a form whose functions count their calls before they do their work:
//     static Form wrap(const Form& form);  static inline int calls;
template <class Form>
struct Counted;

template <class Form>
crypto::Dispatch<Form>& dispatchOf();

// The parameter is the form. Forms that this machine cannot run are skipped, and seen as skipped.
template <class Form>
class FormTest : public testing::TestWithParam<const Form*> {
protected:
    void SetUp() override {
        if (!this->GetParam()->usable()) {
            GTEST_SKIP() << "this machine cannot run the form " << this->GetParam()->name;
        }
        counted_ = Counted<Form>::wrap(*this->GetParam());
        Counted<Form>::calls = 0;
        dispatchOf<Form>().force(&counted_);
    }

    void TearDown() override {
        dispatchOf<Form>().force(nullptr);
        if (this->GetParam()->usable() && !this->IsSkipped()) {
            EXPECT_GT(Counted<Form>::calls, 0) << "another form did the work";
        }
    }

private:
    Form counted_{};
};

template <class Form>
std::string formName(const testing::TestParamInfo<const Form*>& info) {
    std::string name = info.param->name;
    for (char& c : name) {
        if (c == '-') c = '_';
    }
    return name;
}

}  // namespace tv::test

#define TV_FOR_EACH_FORM(suite, Form)                                                        \
    INSTANTIATE_TEST_SUITE_P(Forms, suite,                                                   \
                             testing::ValuesIn(tv::test::dispatchOf<Form>().forms().begin(), \
                                               tv::test::dispatchOf<Form>().forms().end()),  \
                             tv::test::formName<Form>)
