// Runs a test once for each form of a primitive (portable, by special instructions) and proves that
// this form did the work.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "base/crypto/AesGcm.h"
#include "base/crypto/ChaCha20Poly1305.h"
#include "base/crypto/Sha1.h"
#include "base/crypto/Sha2.h"
#include "base/crypto/X25519.h"

namespace tv::test {

// What counting() counts: calls of the functions of one kind of table.
template <class Table>
struct Calls {
    static inline int count;
    static inline const Table* inner;
};

template <auto member>
struct Hook;

template <class Table, class Result, class... Arguments, Result (*Table::*member)(Arguments...)>
struct Hook<member> {
    static Result call(Arguments... arguments) {
        ++Calls<Table>::count;
        return (Calls<Table>::inner->*member)(arguments...);
    }
};

// A copy of the table whose functions count their calls before they do their work.
template <auto... members, class Table>
Table counting(const Table& table) {
    Calls<Table>::count = 0;
    Calls<Table>::inner = &table;
    Table copy = table;
    ((copy.*members = &Hook<members>::call), ...);
    return copy;
}

template <class Form>
struct FormsOf;

#define TV_FORMS(Form, forms, ...)                                                \
    template <>                                                                   \
    struct FormsOf<crypto::Form> {                                                \
        using Table = crypto::Form;                                               \
        static auto& dispatch() { return crypto::forms; }                         \
        static Table counted(const Table& t) { return counting<__VA_ARGS__>(t); } \
    }
TV_FORMS(AesForm, aesForms, &Table::encrypt, &Table::decrypt);
TV_FORMS(GcmForm, gcmForms, &Table::encrypt, &Table::decrypt);
TV_FORMS(ChaChaForm, chaChaForms, &Table::apply, &Table::absorb);
TV_FORMS(Sha1Form, sha1Forms, &Table::compress);
TV_FORMS(Sha256Form, sha256Forms, &Table::compress);
TV_FORMS(X25519Form, x25519Forms, &Table::multiply);
#undef TV_FORMS

// The parameter is the form. Forms that this machine cannot run are skipped, and seen as skipped.
template <class Form>
class FormTest : public testing::TestWithParam<const Form*> {
protected:
    void SetUp() override {
        if (!this->GetParam()->usable()) {
            GTEST_SKIP() << "this machine cannot run the form " << this->GetParam()->name;
        }
        counted_ = FormsOf<Form>::counted(*this->GetParam());
        FormsOf<Form>::dispatch().force(&counted_);
    }

    void TearDown() override {
        FormsOf<Form>::dispatch().force(nullptr);
        if (this->GetParam()->usable() && !this->IsSkipped()) {
            EXPECT_GT(Calls<Form>::count, 0) << "another form did the work";
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

#define TV_FOR_EACH_FORM(suite, Form)                                          \
    INSTANTIATE_TEST_SUITE_P(                                                  \
        Forms, suite,                                                          \
        testing::ValuesIn(tv::test::FormsOf<Form>::dispatch().forms().begin(), \
                          tv::test::FormsOf<Form>::dispatch().forms().end()),  \
        tv::test::formName<Form>)
