// What all mechanisms share: a secret as text, and whether a text can be sent at all.
#include "mail/sasl/Sasl.h"

namespace tv {

Failure SaslMechanism::bareCommand(SaslTurn& turn, std::string_view replyName,
                                   std::string_view refusal) {
    turn.secret = false;
    turn.wanted = SaslWanted::Challenge;
    turn.replyName = replyName;
    turn.refusal = refusal;
    return {};
}

std::string_view saslText(const SecureBuffer& buffer) {
    return {reinterpret_cast<const char*>(buffer.data()), buffer.size()};
}

bool saslSendable(std::string_view text) {
    return text.find_first_of(std::string_view("\r\n\0", 3)) == std::string_view::npos;
}

}  // namespace tv
