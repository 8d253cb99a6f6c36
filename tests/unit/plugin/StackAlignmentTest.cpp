// Hosts on i386 keep their stack aligned to 4 bytes; vector code below the exports needs more.
#ifdef __i386__

#include <gtest/gtest.h>

#include <string>

#include "emailsending.h"
#include "platform/SysDialog.h"
#include "plugin/PluginState.h"
#include "tests/fixtures/CpuForms.h"
#include "tests/fixtures/Dialogue.h"
#include "tests/fixtures/FakeNet.h"
#include "tests/fixtures/FakeSystem.h"
#include "tests/fixtures/TestData.h"
#include "tests/fixtures/hosts/odd_call.h"

namespace tv {
namespace {

using test::script;

template <class Result>
uint32_t call0(Result(EMAILSENDING_CALL* function)(), uint32_t offset) {
    return call_at_offset(reinterpret_cast<any_function>(function), 0, 0, offset);
}

template <class Result>
uint32_t call1(Result(EMAILSENDING_CALL* function)(const char*), const char* text,
               uint32_t offset) {
    return call_at_offset(reinterpret_cast<any_function>(function),
                          reinterpret_cast<uint32_t>(text), 1, offset);
}

// Sees how well the stack below an export is aligned: the compiler puts its local where it would be
// aligned if the caller kept to the rules.
class ProbeDialog final : public plat::SysDialog {
public:
    ProbeDialog() = default;
    ~ProbeDialog() override { plat::replaceSysDialog(before_); }
    ProbeDialog(const ProbeDialog&) = delete;
    ProbeDialog& operator=(const ProbeDialog&) = delete;

    void showError(const char*, std::string_view) override {
        alignas(16) char local[16] = {};
        uintptr_t address = reinterpret_cast<uintptr_t>(local);
        asm volatile("" : "+r"(address) : : "memory");
        misalignment = address % 16;
    }

    uintptr_t misalignment = 99;

private:
    plat::SysDialog* before_ = plat::replaceSysDialog(this);
};

class StackAlignmentTest : public test::CpuFormTest {
protected:
    ~StackAlignmentTest() override { PluginState::replaceInstance(before_); }

    test::FakeClock clock;
    test::FakeRandom random;
    test::FakeHost host{"TESTHOST", 1252, 437};
    test::FakeNet net{clock};
    PluginState state;

private:
    PluginState* before_ = PluginState::replaceInstance(&state);
};

TEST_P(StackAlignmentTest, TheStackIsAlignedBelowAnExport) {
    for (const uint32_t offset : {0u, 4u, 8u, 12u}) {
        ProbeDialog dialog;
        call0(::Initialise, offset);
        call1(::setAttachment, "no-such-file", offset);
        EXPECT_EQ(dialog.misalignment, 0u) << offset;
    }
}

// A body and a file that send every encoder through its vector code.
TEST_P(StackAlignmentTest, AMessageGoesOutAtEveryOffset) {
    const std::string body = "<p>" + std::string(3000, 'x') + "\xC3\xA1</p>";
    for (const uint32_t offset : {0u, 4u, 8u, 12u}) {
        net.serve("10.0.0.1", 25, script("trial"));
        const test::FakeLink& link = net.serve("10.0.0.1", 25, script("whole"));
        call0(::Initialise, offset);
        call1(::setSmtpHost, "10.0.0.1", offset);
        call1(::setFromAddress, "anna@from.test", offset);
        EXPECT_EQ(call1(::setRecipient, "bela@to.test", offset), 1u);
        call1(::setBody, body.c_str(), offset);
        call1(::setLogo, "", offset);
        call1(::setAttachment, testDataPath("windows7_imports.txt").c_str(), offset);
        EXPECT_EQ(call0(::szBrisko, offset), 1u) << ::getLastError();
        EXPECT_NE(link.fromClient.find("xxxxxxxx=\r\n"), std::string::npos) << offset;
        EXPECT_NE(link.fromClient.find("filename=\"windows7_imports.txt\""), std::string::npos);
    }
}

INSTANTIATE_TEST_SUITE_P(Forms, StackAlignmentTest, testing::ValuesIn(test::kCpuForms),
                         test::CpuFormTest::nameOf);

}  // namespace
}  // namespace tv

#endif
