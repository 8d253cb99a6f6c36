// From what is known of a failure to a number.
#include "emailsend/ExitCodes.h"

#include "base/Ascii.h"
#include "emailsend/Process.h"

namespace emailsend {
namespace {

using tv::Cause;
using tv::Stage;

// The first row that fits counts; None and 0 fit everything.
struct Row {
    Stage stage;
    Cause cause;
    int32_t reply;
    int code;
};

constexpr Row kRows[] = {
    {Stage::None, Cause::SettingsUnusable, 0, kSettings},
    {Stage::None, Cause::DnsFailed, 0, kNoSuchHost},
    {Stage::None, Cause::EmptyHostname, 0, kNoSuchHost},
    {Stage::None, Cause::NoSmtpHostname, 0, kUsageError},
    {Stage::Certificate, Cause::None, 0, kNoPermission},
    {Stage::TlsHandshake, Cause::None, 0, kProtocol},
    {Stage::StartTls, Cause::None, 0, kProtocol},
    {Stage::None, Cause::BadReply, 0, kProtocol},
    {Stage::None, Cause::ConnectionLost, 0, kUnavailable},
    {Stage::None, Cause::Timeout, 0, kUnavailable},
    {Stage::None, Cause::None, 538, kProtocol},
    {Stage::Login, Cause::None, 0, kNoPermission},
    {Stage::None, Cause::None, 530, kNoPermission},
    {Stage::None, Cause::None, 534, kNoPermission},
    {Stage::None, Cause::None, 535, kNoPermission},
    {Stage::None, Cause::OutOfMemory, 0, kInternal},
    {Stage::None, Cause::Internal, 0, kInternal},
    {Stage::None, Cause::RenderFailed, 0, kInternal},
    {Stage::None, Cause::None, 0, kUnavailable},
};

bool wantsEncryption(const tv::advice::Finding& finding) {
    return finding.replyCode == 530 &&
           (tv::findIgnoreCase(finding.words, "starttls") != std::string::npos ||
            tv::findIgnoreCase(finding.reply, "starttls") != std::string::npos);
}

// No server has refused them.
bool isUnusableAddress(const tv::advice::Finding& finding) {
    const bool isAboutAddress = finding.cause == Cause::FromFailure ||
                                finding.cause == Cause::NoValidRecipients ||
                                finding.cause == Cause::SomeBadRecipients;
    return isAboutAddress && finding.replyCode == 0 &&
           finding.words.find("came out of order") == std::string::npos;  // that is the server's
}

}  // namespace

int withOutput(int exitCode) {
    if (outArrived()) return exitCode;
    printError("emailsend: the output could not be written\n");
    return exitCode == kAccepted ? kOutputLost : exitCode;
}

int exitCodeOf(const tv::advice::Finding& finding) {
    if (finding.repeat == tv::Repeat::Unknown) return kOutcomeUnknown;
    if (finding.repeat == tv::Repeat::RefusedForNow) return kRefusedForNow;
    if (wantsEncryption(finding)) return kProtocol;
    if (isUnusableAddress(finding)) return kUsageError;
    for (const Row& row : kRows) {
        if ((row.stage == Stage::None || row.stage == finding.stage) &&
            (row.cause == Cause::None || row.cause == finding.cause) &&
            (row.reply == 0 || row.reply == finding.replyCode)) {
            return row.code;
        }
    }
    return kUnavailable;
}

}  // namespace emailsend
