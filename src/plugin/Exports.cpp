// The functions that a host calls, from whatever thread. Each is one step on the shared state,
// behind the guard.
#pragma GCC visibility push(default)
#include "emailsending.h"
#pragma GCC visibility pop

#include <cstdint>

#include "mail/sasl/NtlmVersion.h"
#include "platform/SysDialog.h"
#include "plugin/ExportGuard.h"
#include "plugin/PluginState.h"

// Hosts on i386 enter with a stack that is aligned to 4 bytes; everything below expects 16.
#ifdef __i386__
#define TV_EXPORT __attribute__((force_align_arg_pointer))
#else
#define TV_EXPORT
#endif

namespace {

using tv::guarded;
using tv::PluginState;
using tv::TvEmail;
using tv::TvMailMan;
using Turn = tv::WorkbenchSlot::Turn;

PluginState& state() {
    return PluginState::instance();
}

// Hosts pass NULL for "none".
const char* orEmpty(const char* text) {
    return text ? text : "";
}

// Hosts that know a flag as one byte leave anything in the others.
bool isSet(int flag) {
    return static_cast<uint8_t>(flag) != 0;
}

// Both run a step on an object that Initialise makes; without it nothing happens.
template <class Step>
void onMailMan(Step step) {
    guarded([&] {
        const Turn turn(state().workbench);
        if (turn) step(turn->mailMan);
    });
}

template <class Step>
void onEmail(Step step) {
    guarded([&] {
        const Turn turn(state().workbench);
        if (turn) step(turn->email);
    });
}

}  // namespace

TV_EXPORT int EMAILSENDING_CALL Initialise() {
    guarded([] { state().initialise(); });
    return 0;
}

TV_EXPORT void EMAILSENDING_CALL setSmtpHost(const char* host) {
    onMailMan([=](TvMailMan& mailMan) { mailMan.put_SmtpHost(orEmpty(host)); });
}

TV_EXPORT void EMAILSENDING_CALL setSmtpPort(int port) {
    onMailMan([=](TvMailMan& mailMan) { mailMan.put_SmtpPort(port); });
}

TV_EXPORT void EMAILSENDING_CALL setFromAddress(const char* address) {
    onEmail([=](TvEmail& email) { email.put_From(orEmpty(address)); });
}

TV_EXPORT void EMAILSENDING_CALL setSmtpPassword(const char* password) {
    onMailMan([=](TvMailMan& mailMan) { mailMan.put_SmtpPassword(orEmpty(password)); });
}

TV_EXPORT int EMAILSENDING_CALL setNoopCount(int count) {
    guarded([=] { state().noopCount = count; });
    return count;
}

TV_EXPORT void EMAILSENDING_CALL setSmtpUser(const char* user) {
    onMailMan([=](TvMailMan& mailMan) { mailMan.put_SmtpUsername(orEmpty(user)); });
}

TV_EXPORT void EMAILSENDING_CALL setUseSSL(int flag) {
    onMailMan([=](TvMailMan& mailMan) { mailMan.put_SmtpSsl(isSet(flag)); });
}

TV_EXPORT void EMAILSENDING_CALL setStartTls(int flag) {
    // StartTLS and nothing else: a host that means "TLS from the first byte instead" or that meets
    // a server with an offer must not send its password in clear because of this.
    onMailMan([=](TvMailMan& mailMan) { mailMan.put_StartTLS(isSet(flag)); });
}

TV_EXPORT void EMAILSENDING_CALL setLogging() {
    guarded([] { state().setLogging(); });
}

TV_EXPORT void EMAILSENDING_CALL setVerboseLogging() {
    onMailMan([](TvMailMan& mailMan) { mailMan.put_VerboseLogging(true); });
}

TV_EXPORT int EMAILSENDING_CALL setDefaultNtlmVersion(int version) {
    guarded([=] { tv::setDefaultNtlmVersion(version); });
    return version;
}

TV_EXPORT void EMAILSENDING_CALL setSmtpAuthMethod(const char* method) {
    onMailMan([=](TvMailMan& mailMan) { mailMan.put_SmtpAuthMethod(orEmpty(method)); });
}

TV_EXPORT void EMAILSENDING_CALL setLoginDomain(const char* domain) {
    onMailMan([=](TvMailMan& mailMan) { mailMan.put_LoginDomain(orEmpty(domain)); });
}

TV_EXPORT void EMAILSENDING_CALL setSubject(const char* subject) {
    onEmail([=](TvEmail& email) { email.put_Subject(orEmpty(subject)); });
}

TV_EXPORT void EMAILSENDING_CALL setAttachment(const char* path) {
    guarded([=] { state().setAttachment(orEmpty(path)); },
            [](const char* reason) { tv::plat::sysDialog().showError(tv::kErrorTitle, reason); });
}

TV_EXPORT void EMAILSENDING_CALL setLogo(const char* path) {
    guarded([=] { state().setLogo(orEmpty(path)); });
}

TV_EXPORT void EMAILSENDING_CALL setBody(const char* body) {
    guarded([=] { state().setBody(orEmpty(body)); });
}

TV_EXPORT int EMAILSENDING_CALL setRecipient(const char* address) {
    bool added = false;
    onEmail([&](TvEmail& email) { added = email.AddTo("", orEmpty(address)); });
    return added;
}

TV_EXPORT int EMAILSENDING_CALL setCC(const char* address) {
    bool added = false;
    onEmail([&](TvEmail& email) { added = email.AddCC("", orEmpty(address)); });
    return added;
}

TV_EXPORT int EMAILSENDING_CALL setBCC(const char* address) {
    bool added = false;
    onEmail([&](TvEmail& email) { added = email.AddBcc("", orEmpty(address)); });
    return added;
}

TV_EXPORT int EMAILSENDING_CALL szBrisko() {
    bool sent = false;
    guarded([&] { sent = state().send(); },
            [](const char* reason) { state().lastError.setReason(reason); });
    return sent;
}

TV_EXPORT const char* EMAILSENDING_CALL getLastError() {
    const char* text = "";
    guarded([&] { text = state().lastError.text(); });
    return text;
}

TV_EXPORT void EMAILSENDING_CALL ResetEmail() {
    guarded([] { state().resetEmail(); });
}
