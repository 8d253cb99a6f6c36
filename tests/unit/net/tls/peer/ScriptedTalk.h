// One conversation between the engine and the scripted server: how both are set up, in words, and
// what became of it. Words are done in their order, "no" in front switches off; "resume" makes a
// whole connection of what stands before it, and the next one from its session.
#pragma once

#include "net/tls/CauseAlert.h"
#include "tests/fixtures/HexBytes.h"
#include "tests/unit/net/tls/ScriptedTlsServer.h"
#include "tests/unit/net/tls/peer/OpenSslPeer.h"
#include "tests/unit/net/tls/peer/Talk.h"

namespace tv::tls::test {

struct Ends {
    ServerSetup server;
    TlsSettings client = namedSettings();
    bool randomWorks = true;  // behind the first hello
};

class ScriptedTalk : public Talk<ScriptedTlsServer> {
public:
    explicit ScriptedTalk(const Ends& ends) : Talk(ends.server, ends.client) {
        environment.randomWorks = ends.randomWorks;
    }

    // "legal" or "resumed" where data flows both ways, or else the words of the one alert that the
    // client sends; "silence": it says nothing; "server ends": it makes what the server refuses.
    std::string verdict() {
        const Cause failure = engine.failure();
        EXPECT_TRUE(failure == Cause::None || engine.room().size() == RecordLayer::kReceiveSize);
        EXPECT_TRUE(failure != Cause::TlsPeerAlert || engine.peerAlert());
        if (!serverWords.empty()) {
            return failure == Cause::None ? "server ends"
                                          : std::string(alertName(alertOf(failure)));
        }
        if (engine.isEstablished() && dataFlows() && server.alerts.empty()) {
            const bool resumed = engine.negotiated().resumed;
            EXPECT_EQ(server.resumed, resumed);
            EXPECT_TRUE(!resumed || server.setup.version < Version::Tls13 || server.binderRight);
            return resumed ? "resumed" : "legal";
        }
        EXPECT_FALSE(engine.isEstablished());
        if (server.alerts.empty()) return "silence";
        EXPECT_EQ(server.alerts.size(), 1u);
        return std::string(alertName(static_cast<Alert>(server.alerts[0])));
    }
};

inline Words wordsOf(const std::string& text) {
    Words words = split(text, ' ');
    std::erase(words, "");
    return words;
}

// Decimal or 0x.., or all to the given base.
template <typename T = size_t>
T number(const std::string& text, int base = 0) {
    size_t used = 0;
    const long n = std::stol(text, &used, base);
    must(used == text.size(), "number in a row");
    return static_cast<T>(n);
}

// "01*3+02" is 01010102, "-" nothing.
inline Bytes bytesFrom(const std::string& text) {
    Bytes all;
    for (const std::string& part : split(text, '+')) {
        const Words words = split(part, '*');
        const Bytes bytes = part == "-" ? Bytes() : tv::test::bytesOfHex(words.at(0));
        for (size_t n = words.size() > 1 ? number(words[1]) : 1; n > 0; --n) {
            all = joined({all, bytes});
        }
    }
    return all;
}

// Version 3, a negative serial number, no name of an algorithm, an unreadable issuer, unreadable
// dates, no subject; a key of 91 bytes; an unknown critical extension, no signature.
inline Bytes oddCertificate(Bytes key) {
    if (key.empty()) {
        key.resize(91);
        uint8_t* out = key.data();
        i2d_PUBKEY(x509::peer::keyNamed("P-256"), &out);
    }
    return joined({bytesFrom("30818b+308183+a003020102+0202ff80+3000+30030c01ff+300417026e6f+3000"),
                   key, bytesFrom("a30e300c300a06022a070101ff040100+3000+030100")});
}

inline void resume(Ends& ends) {
    ScriptedTalk first(ends);
    EXPECT_EQ(first.pump().engine.failure(), Cause::None);
    EXPECT_EQ(first.verdict(), "legal") << first.logText();
    ends.client.session = first.engine.takeSession().value();
    EXPECT_FALSE(first.engine.takeSession());
    ends.server.sessionId = first.server.sessionId;
    ends.server.sessionSecret = first.server.sessionSecret;
}

// One word of a setup, which may have a "=" and a value, or "no" in front of a switch.
inline void set(Ends& ends, const std::string& text) {
    static const std::map<std::string, const char*> shorter = {
        {"13", "version=0304 suite=1301 key=P-256 scheme=0403"},
        {"12", "version=0303 suite=C02B key=P-256 scheme=0403"},
        {"cbc12", "12 suite=C009"},
        {"rsa12", "version=0303 suite=C02F key=RSA-2048 scheme=0401"},
        {"plainRsa", "rsa12 suite=009C"},
        {"dhe", "rsa12 suite=009E prime=80+C5*254+0B"},
        {"11", "version=0302 suite=C009 key=P-256"},
        {"10", "version=0301 suite=C009 key=P-256"},
        {"asks12", "12 flight=Hello/Certificate/Exchange/Request/Done"},
        {"asks13", "13 flight=Hello/Extensions/Request/Certificate/Verify/Finished"},
        {"status", "12 flight=Hello/Certificate/Status/Exchange/Done"},
    };
    if (const auto at = shorter.find(text); at != shorter.end()) {
        for (const std::string& word : wordsOf(at->second)) {
            set(ends, word);
        }
        return;
    }
    ServerSetup& s = ends.server;
    TlsSettings& client = ends.client;
    auto& session = client.session;
    const size_t end = std::min(text.find('='), text.size());
    const std::string value = text.substr(std::min(end + 1, text.size()));
    const bool off = text.starts_with("no");
    std::string name = text.substr(off ? 2 : 0);
    name[0] = asciiLower(name[0]);
    // clang-format off
    const std::map<std::string, bool*> switches = {
        {"retry", &s.retry}, {"retryGroup", &s.retryForGroup}, {"share", &s.keyShare},
        {"rehash", &s.rehash}, {"master", &s.extendedMaster},
        {"renegotiationInfo", &s.secureRenegotiation},
        {"ticket", &s.ticket}, {"echo", &s.echo},
        {"fallback", &client.fallback}, {"verifies", &client.verifiesServer},
        {"reuse", &client.options.reuseSessions}, {"gcm", &client.options.gcm},
        {"disable13", &client.options.disableTls13}, {"random", &ends.randomWorks},
        {"zeroTicket", &client.options.zeroLengthTicket},
        {"laterRequests", &client.options.postHandshakeAuth},
    };
    const std::map<std::string, std::function<void()>> words = {
        {"version", [&] { s.version = number<Version>(value, 16); }},
        {"suite", [&] { s.suite = number<uint16_t>(value, 16); }},
        {"key", [&] { s.key = value; }},
        {"scheme", [&] { s.scheme = number<uint16_t>(value, 16); }},
        {"group", [&] { s.group = number<uint16_t>(value); }},
        {"cookie", [&] { s.cookie = bytesFrom(value); }},
        {"again", [&] { s.editRound = 2; }},
        {"recordSize", [&] { s.recordSize = number(value); }},
        {"padding", [&] { s.padding = number(value); }},
        {"flight", [&] { s.flight = value; }},
        {"certificate", [&] { s.certificate = certificateOf(value); }},
        {"signing", [&] { s.certificate = certificateOf(s.key, "digitalSignature"); }},
        {"oddCertificate", [&] { s.certificate = oddCertificate(bytesFrom(value)); }},
        {"prime", [&] { s.prime = bytesFrom(value); }},
        {"resume", [&] { resume(ends); }},
        {"forgotten", [&] { s.sessionId.clear(), s.sessionSecret.clear(); }},
        {"later", [&] { session->receivedAtMs -= number<uint64_t>(value); }},
        {"lifetime", [&] { session->lifetimeSeconds = number<uint32_t>(value); }},
        {"sessionSuite", [&] { session->suite = number<uint16_t>(value, 16); }},
        {"lostSecret", [&] { session->secret.clear(); }},
        {"lostId", [&] { session->id.clear(); }},
        {"verify", [&] { session->scope.requireVerify = true; }},
        {"verified", [&] { session->verifiedUntilMs = TestEnvironment().nowMs + number(value); }},
        {"lowest", [&] { client.versions.lowest = number<Version>(value, 16); }},
        {"highest", [&] { client.versions.highest = number<Version>(value, 16); }},
    };
    // clang-format on
    if (const auto at = switches.find(name); at != switches.end()) {
        *at->second = !off;
    } else {
        words.at(text.substr(0, end))();
    }
}

inline Ends endsOf(const std::string& words) {
    Ends ends;
    for (const std::string& word : wordsOf(words)) {
        set(ends, word);
    }
    return ends;
}

}  // namespace tv::tls::test
