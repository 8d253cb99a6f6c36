// Every mechanism under any challenges: a turn that is to be sent is one line of base64.
#include "Target.h"
#include "base/Base64.h"
#include "log/LogNull.h"
#include "mail/sasl/SaslCramMd5.h"
#include "mail/sasl/SaslLogin.h"
#include "mail/sasl/SaslNtlm.h"
#include "mail/sasl/SaslPlain.h"
#include "mail/sasl/SaslScram.h"
#include "mail/sasl/SaslXoauth2.h"

static std::unique_ptr<tv::SaslMechanism> mechanismOf(int number) {
    using namespace tv;
    SecureBuffer secret;
    secret.append("hidden");
    if (number == 0) return std::make_unique<SaslLogin>("user", std::move(secret), "mail.test");
    if (number == 1) return std::make_unique<SaslPlain>("user", std::move(secret));
    if (number == 2) return std::make_unique<SaslCramMd5>("user", std::move(secret));
    if (number == 3) return std::make_unique<SaslXoauth2>("user", std::move(secret), nullptr);
    if (number == 5 || number == 6) {
        const auto hash = number == 5 ? crypto::HashId::kSha256 : crypto::HashId::kSha1;
        return std::make_unique<SaslScram>(hash, "user", std::move(secret), "nonce");
    }
    return std::make_unique<SaslNtlm>(XString("user"), XString("hidden"), XString("DOMAIN"));
}

void tv::take(Input input) {
    if (input.empty()) return;
    const auto mechanism = mechanismOf(input[0] % 7);
    std::string_view rest = textOf(input.subspan(1));
    LogNull log;
    SaslTurn turn;
    require(!mechanism->begin(log, turn));
    for (int turns = 0; turns <= 8; ++turns) {
        require(base64Decode(saslText(turn.text), 1 << 20) && !turn.replyName.empty());
        std::string_view line = takeLine(rest);
        if (line.ends_with('\n')) line.remove_suffix(1);
        turn = {};
        if (mechanism->respond(log, line, turn)) return;
        mechanism->explainRefusal(log, line);
    }
}
