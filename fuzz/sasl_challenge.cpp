// Every mechanism under any challenges: a turn that is to be sent is one line of base64.
#include <cstdlib>
#include <memory>

#include "base/Base64.h"
#include "log/LogNull.h"
#include "mail/sasl/SaslCramMd5.h"
#include "mail/sasl/SaslLogin.h"
#include "mail/sasl/SaslNtlm.h"
#include "mail/sasl/SaslPlain.h"
#include "mail/sasl/SaslXoauth2.h"

namespace {

using tv::SecureBuffer;

void require(bool holds) {
    if (!holds) std::abort();
}

SecureBuffer secret() {
    SecureBuffer out;
    out.append("hidden");
    return out;
}

std::unique_ptr<tv::SaslMechanism> mechanismOf(uint8_t number) {
    switch (number % 5) {
        case 0:
            return std::make_unique<tv::SaslLogin>("user", secret(), "mail.test");
        case 1:
            return std::make_unique<tv::SaslPlain>("user", secret());
        case 2:
            return std::make_unique<tv::SaslCramMd5>("user", secret());
        case 3:
            return std::make_unique<tv::SaslXoauth2>("user", secret(), nullptr);
        default:
            return std::make_unique<tv::SaslNtlm>(tv::XString("user"), tv::XString("hidden"),
                                                  tv::XString("DOMAIN"));
    }
}

void requireSendable(const tv::SaslTurn& turn) {
    require(tv::base64Decode(tv::saslText(turn.text), 1 << 20).has_value());
    require(!turn.replyName.empty());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const auto mechanism = mechanismOf(data[0]);
    std::string_view rest(reinterpret_cast<const char*>(data + 1), size - 1);
    tv::LogNull log;
    tv::SaslTurn first;
    require(!mechanism->begin(log, first));
    requireSendable(first);
    for (int turns = 0; turns < 8; ++turns) {
        const std::string_view line = rest.substr(0, rest.find('\n'));
        tv::SaslTurn turn;
        if (mechanism->respond(log, line, turn)) return 0;
        requireSendable(turn);
        mechanism->explainRefusal(log, line);
        rest.remove_prefix(line.size() < rest.size() ? line.size() + 1 : rest.size());
    }
    return 0;
}
