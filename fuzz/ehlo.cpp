// The capability parser on any EHLO reply: announcing more never takes anything away, and the
// mechanism chosen is one that was offered.
#include <cstdlib>
#include <string>
#include <string_view>

#include "mail/smtp/SmtpAuth.h"
#include "mail/smtp/SmtpCapabilities.h"

namespace {

void require(bool holds) {
    if (!holds) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string_view rest(reinterpret_cast<const char*>(data), size);
    tv::SmtpResponse reply;
    while (!rest.empty() && reply.lines.size() < tv::kMaxReplyLines) {
        const size_t end = rest.find('\n');
        const size_t length = end == std::string_view::npos ? rest.size() : end + 1;
        reply.lines.emplace_back(rest.substr(0, length));
        rest.remove_prefix(length);
    }
    tv::SmtpCapabilities found;
    for (const std::string_view line : tv::smtp::addEhloReply(reply, found)) {
        require(line.size() < 3);
    }
    tv::SmtpCapabilities again = found;
    tv::smtp::addEhloReply(reply, again);
    require(again == found);

    const std::string method = reply.lines.empty() ? std::string() : reply.lines.front();
    const tv::AuthMechanisms left = tv::smtp::restrictedTo(method, found.auth);
    const bool nothing = tv::smtp::chooseMechanism(left, true, true) == tv::AuthMechanism::None;
    require(nothing == !left.any());
    return 0;
}
