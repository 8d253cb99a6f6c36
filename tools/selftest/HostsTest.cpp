// Hosts that enter the library as compilers of old do: with a stack aligned to 4 bytes (32 bits),
// and with floating-point states of their own, which have to be there afterwards.
#include <array>

#include "selftest/SmtpSink.h"
#include "selftest/TestLibrary.h"
#include "tests/fixtures/Dialogue.h"
#include "tests/fixtures/hosts/odd_stack.h"

namespace selftest {
namespace {

// How the host's compiler sets the x87 and SSE units: as everybody, with division by zero, overflow
// and invalid operations as exceptions (Delphi), with all of them, rounded down and flushed to
// zero.
struct FloatingPoint {
    uint16_t control = 0;
    uint32_t mxcsr = 0;
    uint16_t status = 0;
};
constexpr FloatingPoint kUsual = {0x037F, 0x1F80};
constexpr FloatingPoint kStates[] = {kUsual, {0x1332, 0x1900}, {0x0300, 0}, {0x047F, 0xBFC0}};

void set(const FloatingPoint& state) {
    asm volatile("fnclex\n\tfldcw %0\n\tldmxcsr %1" : : "m"(state.control), "m"(state.mxcsr));
}

FloatingPoint now() {
    FloatingPoint state;
    asm volatile("fnstcw %0\n\tstmxcsr %1\n\tfnstsw %2"
                 : "=m"(state.control), "=m"(state.mxcsr), "=m"(state.status));
    return state;
}

using Function = void (*)();
#ifdef __i386__
constexpr unsigned kOffsets[] = {0, 4, 8, 12};
#else
constexpr unsigned kOffsets[] = {0};  // the system itself demands aligned stacks

intptr_t call_at(unsigned, Function function, intptr_t argument, int) {
    return reinterpret_cast<intptr_t (*)(intptr_t)>(function)(argument);
}
#endif

class Hosts : public TestLibrary {
protected:
    // Calls an export as such a host.
    template <class Result, class... Args>
    intptr_t call(Result(EMAILSENDING_CALL* function)(Args...), Args... args) {
        intptr_t argument = 0;
        ((argument = (intptr_t)args), ...);
        set(host);
        const FloatingPoint before = now();  // reserved bits read as they please
        const intptr_t result =
            call_at(offset, reinterpret_cast<Function>(function), argument, sizeof...(Args));
        const FloatingPoint after = now();
        set(kUsual);
        EXPECT_EQ(after.control, before.control);
        EXPECT_EQ(after.mxcsr, before.mxcsr);
        EXPECT_EQ(after.status & 0x3F, 0) << "an exception is pending";
        return result;
    }
    void send(int port) {
        call(plugIn.Initialise);
        call(plugIn.setSmtpHost, "127.0.0.1");
        call(plugIn.setSmtpPort, port);
        call(plugIn.setFromAddress, "anna@from.test");
        EXPECT_EQ(static_cast<int>(call(plugIn.setRecipient, "bela@to.test")), 1);
        call(plugIn.setSubject, "Crooked");
        call(plugIn.setBody, "<p>{LOGO}</p>");
        call(plugIn.setLogo, "");
        EXPECT_EQ(static_cast<int>(call(plugIn.szBrisko)), 1) << plugIn.getLastError();
        call(plugIn.ResetEmail);
        EXPECT_STREQ(reinterpret_cast<const char*>(call(plugIn.getLastError)), "");
    }

    unsigned offset = 0;
    FloatingPoint host;
};

TEST_F(Hosts, sendFromAnyStackAndFloatingPointState) {
    const Security all[] = {Security::Plain, Security::ImplicitTls13};
    for (const Security security : all) {
        const SmtpSink sink(security);
        ASSERT_NE(sink.port(), 0) << "no server on 127.0.0.1";
        if (security != Security::Plain) useSettings("[server]\nencryption = implicit\n");
        size_t sent = 0;
        for (const unsigned stack : kOffsets) {
            for (const FloatingPoint& state : kStates) {
                SCOPED_TRACE("stack " + std::to_string(stack) + ", control word " +
                             std::to_string(state.control));
                offset = stack;
                host = state;
                send(sink.port());
                EXPECT_EQ(sink.messages().size(), ++sent);
            }
        }
    }
}

}  // namespace
}  // namespace selftest
