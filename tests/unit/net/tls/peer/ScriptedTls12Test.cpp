// TLS 1.0 to 1.2 against a server that misbehaves on purpose: for each change of each message the
// exact alert, or that it is legal. Signature and Finished are made over the changed message.
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/unit/net/tls/peer/ScriptedTalk.h"

namespace tv::tls::test {
namespace {

using enum Step;

// clang-format off

// ---- setups

void ecdhe(ServerSetup& s) { s.version = 0x0303, s.suite = 0xC02B; }
void p256(ServerSetup& s) { ecdhe(s), s.group = 23; }
void ecdheRsa(ServerSetup& s) { ecdhe(s), s.suite = 0xC02F, s.key = "RSA-2048", s.scheme = 0x0401; }
void sha384(ServerSetup& s) { ecdheRsa(s), s.suite = 0xC030; }
void bare(ServerSetup& s) { ecdhe(s), s.secureRenegotiation = false, s.extendedMaster = false; }
void noMaster(ServerSetup& s) { ecdhe(s), s.extendedMaster = false; }
void tls11(ServerSetup& s) { ecdhe(s), s.version = 0x0302, s.suite = 0xC009; }
void tls10(ServerSetup& s) { tls11(s), s.version = 0x0301; }
void tls10Rsa(ServerSetup& s) { tls10(s), s.suite = 0xC013, s.key = "RSA-2048"; }
void dhe(ServerSetup& s) { ecdheRsa(s), s.suite = 0x009E, s.dhPrime = dhPrime(2048); }
void plainRsa(ServerSetup& s) { ecdheRsa(s), s.suite = 0x009C; }
void signing(ServerSetup& s) { sha384(s), s.certificate = signingCertificateOf(keyOf(s.key)); }
void asks(ServerSetup& s) {
    ecdhe(s);
    s.flight = {ServerHello, Certificate, ServerKeyExchange, CertificateRequest, ServerHelloDone};
}
void status(ServerSetup& s) {
    ecdhe(s);
    s.flight = {ServerHello, Certificate, CertificateStatus, ServerKeyExchange, ServerHelloDone};
    s.edits.emplace(ServerHello, EDIT(m.exts.push_back({5, {}})));
}
void ticket(ServerSetup& s) { ecdhe(s), s.ticket = true; }
void rsaKeyOf(ServerSetup& s, size_t bits, uint8_t lastByte, const Bytes& exponent) {
    plainRsa(s);
    Bytes modulus((bits + 7) / 8, 0x9B);
    modulus[0] = static_cast<uint8_t>(0x80 >> ((8 - bits % 8) % 8));
    modulus.back() = lastByte;
    s.certificate = rsaCertificate(modulus, exponent);
}
void dhGroup(ServerSetup& s, size_t bits, uint8_t lastByte = 0x0B) {
    dhe(s);
    s.dhPrime = Bytes((bits + 7) / 8, 0xC5);
    s.dhPrime[0] = static_cast<uint8_t>(0x80 >> ((8 - bits % 8) % 8));
    s.dhPrime.back() = lastByte;
}

// ---- edits

void point(Item& m, const Bytes& key) {
    m.body.resize(3);
    m.body.push_back(static_cast<uint8_t>(key.size()));
    m.body.insert(m.body.end(), key.begin(), key.end());
}
// Replaces the public value, or the generator, of a Diffie-Hellman group.
Bytes dhValue(const Item& m, int offset) {
    Bytes p(m.body.begin() + 2, m.body.begin() + 2 + (m.body[0] << 8 | m.body[1]));
    p.back() = static_cast<uint8_t>(p.back() + offset);
    return p;
}
void dhParams(Item& m, const Bytes& generator, const Bytes& value) {
    const auto counted = [](const Bytes& b) {
        return joined({Bytes{static_cast<uint8_t>(b.size() >> 8), static_cast<uint8_t>(b.size())}, b});
    };
    m.body = joined({counted(dhValue(m, 0)), counted(generator), counted(value)});
}
void chain(Item& m, size_t more) {
    Bytes list(m.body.begin() + 3, m.body.end());
    for (size_t i = 0; i < more; ++i) {
        list = joined({list, Bytes{0, 0, 1, 0x30}});
    }
    m.body = joined({Bytes{0, static_cast<uint8_t>(list.size() >> 8),
                           static_cast<uint8_t>(list.size())},
                     list});
}

const Row kRows[] = {
    {"hello.legal", ecdhe, ServerHello, nullptr, kLegal},
    {"hello.rsa", ecdheRsa, ServerHello, nullptr, kLegal},
    {"hello.sha384", sha384, ServerHello, nullptr, kLegal},
    {"hello.secp256r1", p256, ServerHello, nullptr, kLegal},
    {"hello.noMaster", noMaster, ServerHello, nullptr, kLegal},
    {"hello.tls11", tls11, ServerHello, nullptr, kLegal},
    {"hello.tls10", tls10, ServerHello, nullptr, kLegal},
    {"hello.tls10Rsa", tls10Rsa, ServerHello, nullptr, kLegal},
    {"hello.noExtensions", bare, ServerHello, EDIT(m.hasExts = false), kLegal},
    {"hello.version13", ecdhe, ServerHello, EDIT(m.body[1] = 4), Alert::ProtocolVersion},
    {"hello.version11", ecdhe, ServerHello, EDIT(m.body[1] = 2), Alert::IllegalParameter},  // suite
    {"hello.version30", ecdhe, ServerHello, EDIT(m.body[1] = 0), Alert::ProtocolVersion},
    {"hello.versionHigh", ecdhe, ServerHello, EDIT(m.body[0] = 4), Alert::ProtocolVersion},
    {"hello.markTo12", ecdhe, ServerHello, EDIT(mark(m, 1)), Alert::IllegalParameter},
    {"hello.markTo11", ecdhe, ServerHello, EDIT(mark(m, 0)), Alert::IllegalParameter},
    {"hello.markUnknown", ecdhe, ServerHello, EDIT(mark(m, 2)), kLegal},
    {"hello.sessionId33", ecdhe, ServerHello, EDIT(m.body.insert(m.body.begin() + 35, 1); m.body[34] = 33), Alert::DecodeError},
    {"hello.noSessionId", ecdhe, ServerHello, EDIT(m.body.erase(m.body.begin() + 35, m.body.begin() + 67); m.body[34] = 0), kLegal},
    {"hello.suiteOf13", ecdhe, ServerHello, EDIT(put(m, 67, {0x13, 1})), Alert::IllegalParameter},
    {"hello.suiteNotOffered", ecdhe, ServerHello, EDIT(put(m, 67, {0xC0, 0xAC})), Alert::IllegalParameter},
    {"hello.nullSuite", ecdhe, ServerHello, EDIT(put(m, 67, {0, 0})), Alert::IllegalParameter},
    {"hello.selects12", ecdhe, ServerHello, EDIT(add(m, 43, {3, 3})), Alert::IllegalParameter},
    {"hello.shareMisplaced", ecdhe, ServerHello, EDIT(add(m, 51, {0, 29, 0, 1, 1})), Alert::IllegalParameter},
    {"hello.unknownExtension", ecdhe, ServerHello, EDIT(add(m, 0x1234)), Alert::UnsupportedExtension},
    {"hello.ticketNotOffered", ecdhe, ServerHello, EDIT(add(m, 35)), Alert::UnsupportedExtension},
    {"hello.protocol", ecdhe, ServerHello, EDIT(add(m, 16, {0, 3, 2, 'h', '2'})), Alert::UnsupportedExtension},
    {"hello.schemesMisplaced", ecdhe, ServerHello, EDIT(add(m, 13, {0, 2, 4, 3})), Alert::IllegalParameter},
    {"hello.twoMasters", ecdhe, ServerHello, EDIT(add(m, 23)), Alert::IllegalParameter},
    {"hello.masterNotEmpty", ecdhe, ServerHello, EDIT(m.ext(23) = {0}), Alert::DecodeError},
    {"hello.renegotiationNotEmpty", ecdhe, ServerHello, EDIT(m.ext(0xFF01) = {1, 7}), Alert::HandshakeFailure},
    {"hello.renegotiationMalformed", ecdhe, ServerHello, EDIT(m.ext(0xFF01) = {1}), Alert::DecodeError},
    {"hello.renegotiationTrailing", ecdhe, ServerHello, EDIT(m.ext(0xFF01) = {0, 0}), Alert::DecodeError},
    {"hello.statusNotEmpty", ecdhe, ServerHello, EDIT(add(m, 5, {1})), Alert::DecodeError},
    {"hello.nameNotEmpty", ecdhe, ServerHello, EDIT(add(m, 0, {1})), Alert::DecodeError},
    {"hello.groups", ecdhe, ServerHello, EDIT(add(m, 10, {0, 4, 0, 29, 0, 23})), kLegal},  // deployed servers do it
    {"hello.pointFormats", ecdhe, ServerHello, EDIT(add(m, 11, {2, 1, 0})), kLegal},
    {"hello.pointFormatsCompressed", ecdhe, ServerHello, EDIT(add(m, 11, {1, 1})), Alert::IllegalParameter},
    {"hello.pointFormatsEmpty", ecdhe, ServerHello, EDIT(add(m, 11, {0})), Alert::DecodeError},
    {"hello.limit64", ecdhe, ServerHello, EDIT(add(m, 28, {0, 64})), kLegal},
    {"hello.limit63", ecdhe, ServerHello, EDIT(add(m, 28, {0, 63})), Alert::IllegalParameter},

    {"certificate.none", ecdhe, Certificate, EDIT(m.body = Bytes(3)), Alert::DecodeError},
    {"certificate.empty", ecdhe, Certificate, EDIT(m.body = {0, 0, 3, 0, 0, 0}), Alert::DecodeError},
    {"certificate.odd", ecdhe, Certificate, EDIT(m.body = {0, 0, 5, 0, 0, 2, 0x30, 0}), Alert::BadCertificate},
    {"certificate.sixtyFour", ecdhe, Certificate, EDIT(chain(m, 63)), kLegal},
    {"certificate.sixtyFive", ecdhe, Certificate, EDIT(chain(m, 64)), Alert::DecodeError},
    {"certificate.otherKind", [](ServerSetup& s) { ecdheRsa(s), s.suite = 0xC02B; }, Certificate, nullptr, Alert::IllegalParameter},
    {"certificate.otherKey", [](ServerSetup& s) { ecdhe(s); s.certificate = certificateOf(keyOf("P-384")); }, Certificate, nullptr, Alert::DecryptError},
    {"certificate.curveNotOffered", [](ServerSetup& s) { ecdhe(s); s.key = "brainpoolP384r1"; }, Certificate, nullptr, Alert::IllegalParameter},
    {"certificate.long", ecdhe, Certificate, EDIT(m.length = 128 * 1024 + 1), Alert::IllegalParameter},
    {"hello.long", ecdhe, ServerHello, EDIT(m.length = 64 * 1024 + 1), Alert::IllegalParameter},

    {"status.legal", status, CertificateStatus, nullptr, kLegal},
    {"status.leftOut", ecdhe, ServerHello, EDIT(add(m, 5)), kLegal},
    {"status.notAnnounced", status, ServerHello, EDIT(m.drop(5)), Alert::UnexpectedMessage},
    {"status.malformed", status, CertificateStatus, EDIT(m.body.push_back(0)), Alert::DecodeError},
    {"status.otherType", status, CertificateStatus, EDIT(m.body[0] = 2), Alert::DecodeError},

    {"exchange.explicitCurve", ecdhe, ServerKeyParams, EDIT(m.body[0] = 1), Alert::IllegalParameter},
    {"exchange.curveNotOffered", [](ServerSetup& s) { ecdhe(s), s.group = 26; }, ServerHello, nullptr, Alert::IllegalParameter},
    {"exchange.curveBehindSeam", [](ServerSetup& s) { ecdhe(s), s.group = 27; }, ServerHello, nullptr, Alert::IllegalParameter},
    {"exchange.curveUnknown", ecdhe, ServerKeyParams, EDIT(m.body[1] = 1), Alert::IllegalParameter},
    {"exchange.zero", ecdhe, ServerKeyParams, EDIT(point(m, Bytes(32))), Alert::IllegalParameter},
    {"exchange.short", ecdhe, ServerKeyParams, EDIT(point(m, Bytes(31, 9))), Alert::IllegalParameter},
    {"exchange.long", ecdhe, ServerKeyParams, EDIT(point(m, Bytes(33, 9))), Alert::IllegalParameter},
    {"exchange.empty", ecdhe, ServerKeyParams, EDIT(point(m, {})), Alert::DecodeError},
    {"exchange.offCurve", p256, ServerKeyParams, EDIT(m.body.back() ^= 1), Alert::IllegalParameter},
    {"exchange.infinity", p256, ServerKeyParams, EDIT(point(m, {0})), Alert::IllegalParameter},
    {"exchange.otherKey", ecdhe, ServerKeyParams, EDIT(m.body.back() ^= 1), kServerEnds},
    {"exchange.trailing", ecdhe, ServerKeyExchange, EDIT(m.body.push_back(0)), Alert::DecodeError},
    {"exchange.noSignature", ecdhe, ServerKeyExchange, EDIT(m.body.resize(36)), Alert::DecodeError},
    {"exchange.emptySignature", ecdhe, ServerKeyExchange, EDIT(m.body.resize(40); put(m, 38, {0, 0})), Alert::DecryptError},
    {"exchange.pss", [](ServerSetup& s) { ecdheRsa(s), s.scheme = 0x0804; }, ServerHello, nullptr, kLegal},
    {"exchange.pkcs1Sha512", [](ServerSetup& s) { ecdheRsa(s), s.scheme = 0x0601; }, ServerHello, nullptr, kLegal},
    {"exchange.pkcs1Sha1", [](ServerSetup& s) { ecdheRsa(s), s.scheme = 0x0201; }, ServerHello, nullptr, kLegal},
    {"exchange.md5", [](ServerSetup& s) { ecdheRsa(s), s.scheme = 0x0101; }, ServerHello, nullptr, Alert::IllegalParameter},
    {"exchange.ecdsaSha1", [](ServerSetup& s) { ecdhe(s), s.scheme = 0x0203; }, ServerHello, nullptr, kLegal},
    {"exchange.hashOfOtherCurve", [](ServerSetup& s) { ecdhe(s), s.scheme = 0x0503; }, ServerHello, nullptr, kLegal},
    {"exchange.schemeNotOffered", ecdheRsa, ServerKeyExchange, EDIT(put(m, 36, {3, 1})), Alert::IllegalParameter},
    {"exchange.schemeOfOtherKind", ecdhe, ServerKeyExchange, EDIT(put(m, 36, {4, 1})), Alert::IllegalParameter},
    {"exchange.otherHash", ecdhe, ServerKeyExchange, EDIT(put(m, 36, {5, 3})), Alert::DecryptError},
    {"exchange.tls10Signature", tls10Rsa, ServerKeyExchange, EDIT(m.body.back() ^= 1), Alert::DecryptError},
    {"exchange.tls10Ecdsa", tls10, ServerKeyExchange, EDIT(m.body.back() ^= 1), Alert::DecryptError},

    {"dhe.2048", dhe, ServerHello, nullptr, kLegal},
    {"dhe.1024", [](ServerSetup& s) { dhe(s), s.dhPrime = dhPrime(1024); }, ServerHello, nullptr, kLegal},
    {"dhe.768", [](ServerSetup& s) { dhe(s), s.dhPrime = dhPrime(768); }, ServerHello, nullptr, kLegal},
    {"dhe.767", [](ServerSetup& s) { dhGroup(s, 767); }, ServerHello, nullptr, Alert::InsufficientSecurity},
    {"dhe.8193", [](ServerSetup& s) { dhGroup(s, 8193); }, ServerHello, nullptr, Alert::IllegalParameter},
    {"dhe.evenModulus", [](ServerSetup& s) { dhGroup(s, 1024, 0x0A); }, ServerHello, nullptr, Alert::IllegalParameter},
    {"dhe.generator1", dhe, ServerKeyParams, EDIT(dhParams(m, {1}, {5})), Alert::IllegalParameter},
    {"dhe.generatorMinus1", dhe, ServerKeyParams, EDIT(dhParams(m, dhValue(m, -1), {5})), Alert::IllegalParameter},
    {"dhe.value0", dhe, ServerKeyParams, EDIT(dhParams(m, {2}, {0})), Alert::IllegalParameter},
    {"dhe.value1", dhe, ServerKeyParams, EDIT(dhParams(m, {2}, {1})), Alert::IllegalParameter},
    {"dhe.value2", dhe, ServerKeyParams, EDIT(dhParams(m, {2}, {2})), kServerEnds},
    {"dhe.valueMinus2", dhe, ServerKeyParams, EDIT(dhParams(m, {2}, dhValue(m, -2))), kServerEnds},
    {"dhe.valueMinus1", dhe, ServerKeyParams, EDIT(dhParams(m, {2}, dhValue(m, -1))), Alert::IllegalParameter},
    {"dhe.valueIsModulus", dhe, ServerKeyParams, EDIT(dhParams(m, {2}, dhValue(m, 0))), Alert::IllegalParameter},
    {"dhe.emptyGenerator", dhe, ServerKeyParams, EDIT(dhParams(m, {}, {5})), Alert::DecodeError},
    {"dhe.emptyValue", dhe, ServerKeyParams, EDIT(dhParams(m, {2}, {})), Alert::DecodeError},
    {"dhe.signature", dhe, ServerKeyExchange, EDIT(m.body.back() ^= 1), Alert::DecryptError},

    {"rsa.legal", plainRsa, ServerHello, nullptr, kLegal},
    {"rsa.keyExchange", [](ServerSetup& s) { plainRsa(s); s.flight = {ServerHello, Certificate, ServerKeyExchange, ServerHelloDone}; }, ServerHello, nullptr, Alert::UnexpectedMessage},
    {"rsa.exponent3", [](ServerSetup& s) { rsaKeyOf(s, 2048, 0x9B, {3}); }, ServerHello, nullptr, kServerEnds},
    {"rsa.8192", [](ServerSetup& s) { rsaKeyOf(s, 8192, 0x9B, {1, 0, 1}); }, ServerHello, nullptr, kServerEnds},
    {"rsa.8193", [](ServerSetup& s) { rsaKeyOf(s, 8193, 0x9B, {1, 0, 1}); }, ServerHello, nullptr, Alert::IllegalParameter},
    {"rsa.evenModulus", [](ServerSetup& s) { rsaKeyOf(s, 2048, 0x9A, {1, 0, 1}); }, ServerHello, nullptr, Alert::IllegalParameter},
    {"rsa.exponent1", [](ServerSetup& s) { rsaKeyOf(s, 2048, 0x9B, {1}); }, ServerHello, nullptr, Alert::IllegalParameter},
    {"rsa.evenExponent", [](ServerSetup& s) { rsaKeyOf(s, 2048, 0x9B, {1, 0, 0}); }, ServerHello, nullptr, Alert::IllegalParameter},
    {"rsa.exponentTooLong", [](ServerSetup& s) { rsaKeyOf(s, 2048, 0x9B, {1, 0, 0, 0, 1}); }, ServerHello, nullptr, Alert::IllegalParameter},

    {"request.legal", asks, CertificateRequest, nullptr, kLegal},
    {"request.names", asks, CertificateRequest, EDIT(m.body = {1, 64, 0, 2, 4, 3, 0, 3, 0, 1, 7}), kLegal},
    {"request.noTypes", asks, CertificateRequest, EDIT(m.body = {0, 0, 2, 4, 3, 0, 0}), Alert::DecodeError},
    {"request.oddSchemes", asks, CertificateRequest, EDIT(m.body = {1, 64, 0, 1, 4, 0, 0}), Alert::DecodeError},
    {"request.trailing", asks, CertificateRequest, EDIT(m.body.push_back(0)), Alert::DecodeError},
    {"done.notEmpty", ecdhe, ServerHelloDone, EDIT(m.body = {0}), Alert::DecodeError},

    {"ticket.legal", ticket, NewSessionTicket, nullptr, kLegal},
    {"ticket.leftOut", ecdhe, ServerHello, EDIT(add(m, 35)), kLegal},
    {"ticket.twice", ticket, NewSessionTicket, EDIT(all.push_back(m)), Alert::UnexpectedMessage},
    {"ticket.malformed", ticket, NewSessionTicket, EDIT(m.body.push_back(0)), Alert::DecodeError},
    {"ticket.notAnnounced", ticket, ServerHello, EDIT(m.drop(35)), Alert::UnexpectedMessage},

    {"ccs.otherByte", ecdhe, ChangeCipherSpec, EDIT(m.body = {2}), Alert::UnexpectedMessage},
    {"ccs.twoBytes", ecdhe, ChangeCipherSpec, EDIT(m.body = {1, 1}), Alert::UnexpectedMessage},
    {"ccs.empty", ecdhe, ChangeCipherSpec, EDIT(m.body = {}), Alert::UnexpectedMessage},
    {"ccs.twice", ecdhe, Finished, EDIT(before(all, record(20, {1}))), Alert::UnexpectedMessage},
    {"ccs.missing", [](ServerSetup& s) { ecdhe(s), s.finalFlight = {Finished}; }, Finished, nullptr, Alert::UnexpectedMessage},
    {"ccs.beforeHello", ecdhe, ServerHello, EDIT(before(all, record(20, {1}))), kLegal},  // the one of TLS 1.3
    {"ccs.32BeforeHello", ecdhe, ServerHello, EDIT(before(all, record(20, {1}), 32)), kLegal},
    {"ccs.33BeforeHello", ecdhe, ServerHello, EDIT(before(all, record(20, {1}), 33)), Alert::UnexpectedMessage},
    {"ccs.beforeCertificate", ecdhe, Certificate, EDIT(before(all, record(20, {1}))), Alert::UnexpectedMessage},
    {"ccs.beforeKeyExchange", ecdhe, ServerKeyExchange, EDIT(before(all, record(20, {1}))), Alert::UnexpectedMessage},
    {"ccs.beforeDone", ecdhe, ServerHelloDone, EDIT(before(all, record(20, {1}))), Alert::UnexpectedMessage},
    {"ccs.inMessage", ecdhe, ChangeCipherSpec, EDIT(before(all, record(22, {20}))), Alert::UnexpectedMessage},

    {"finished.short", ecdhe, Finished, EDIT(m.body.pop_back()), Alert::DecodeError},
    {"finished.long", ecdhe, Finished, EDIT(m.body.push_back(0)), Alert::DecodeError},
    {"finished.leftover", ecdhe, Finished, EDIT(m.tail = {0, 0, 0, 0}), Alert::UnexpectedMessage},
    {"finished.tls10", tls10, Finished, EDIT(m.body[0] ^= 1), Alert::DecryptError},

    {"record.dataBeforeHello", ecdhe, ServerHello, EDIT(before(all, record(23, {1}))), Alert::UnexpectedMessage},
    {"record.dataBeforeDone", ecdhe, ServerHelloDone, EDIT(before(all, record(23, {1}))), Alert::UnexpectedMessage},
    {"record.dataBeforeFinished", ecdhe, Finished, EDIT(before(all, record(23, {1}))), Alert::UnexpectedMessage},
    {"record.heartbeat", ecdhe, ServerHelloDone, EDIT(before(all, record(24, {1}))), Alert::UnexpectedMessage},
    {"record.fatalAlert", ecdhe, ServerHelloDone, EDIT(before(all, record(21, {2, 40}))), kSilence},
    {"record.alertLevel3", ecdhe, ServerHelloDone, EDIT(before(all, record(21, {3, 112}))), kSilence},
    {"record.warningInMessage", ecdhe, ServerHelloDone, EDIT(before(all, record(21, {1, 112})); before(all, record(22, {14, 0}))), Alert::UnexpectedMessage},
    {"record.closeNotify", ecdhe, ServerHelloDone, EDIT(before(all, record(21, {1, 0}))), kSilence},
    {"record.warningOfName", ecdhe, ServerHello, EDIT(before(all, record(21, {1, 112}))), kLegal},
    {"record.warningOfName11", tls11, ServerHello, EDIT(before(all, record(21, {1, 112}))), kLegal},
    {"record.warningOfName10", tls10, ServerHello, EDIT(before(all, record(21, {1, 112}))), kLegal},
    {"record.emptyAlert", ecdhe, ServerHelloDone, EDIT(before(all, record(21, {}))), Alert::UnexpectedMessage},
    {"record.warnings32", ecdhe, ServerHelloDone, EDIT(before(all, record(21, {1, 112}), 32)), kLegal},
    {"record.warnings33", ecdhe, ServerHelloDone, EDIT(before(all, record(21, {1, 112}), 33)), Alert::UnexpectedMessage},
    {"record.emptyHandshakes33", ecdhe, ServerHelloDone, EDIT(before(all, record(22, {}), 33)), Alert::UnexpectedMessage},
    {"record.helloRequests33", ecdhe, ServerHelloDone, EDIT(before(all, Item{}, 33)), Alert::UnexpectedMessage},
};

// clang-format on

TEST(ScriptedTls12, EachMutationHasItsAlert) {
    for (const Row& row : kRows) {
        TlsSettings settings = namedSettings();
        settings.options.zeroLengthTicket = std::string(row.name).rfind("ticket", 0) == 0;
        expectRow(row, settings);
    }
}

// Offsets of the hello as in TLS 1.3; extensions: renegotiation_info (72, 74, 76), master (77, 79).
const FlipRow kFlips[] = {
    {"hello.sessionId", ecdhe, ServerHello, 35, 67, kLegal},
    {"hello.suite", ecdhe, ServerHello, 67, 69, Alert::IllegalParameter, {0x80}},
    {"hello.compression", ecdhe, ServerHello, 69, 70, Alert::IllegalParameter},
    {"hello.extensionsSize", ecdhe, ServerHello, 70, 72, Alert::DecodeError},
    {"hello.renegotiationType", ecdhe, ServerHello, 72, 74, Alert::UnsupportedExtension, {0x80}},
    {"hello.masterType", ecdhe, ServerHello, 77, 79, Alert::UnsupportedExtension},
    {"hello.masterSize", ecdhe, ServerHello, 79, 81, Alert::DecodeError},
    {"hello.random", ecdhe, ServerHello, 2, 34, kLegal},
    {"certificate.size", ecdhe, Certificate, 0, 6, Alert::DecodeError},
    {"exchange.curve", ecdhe, ServerKeyParams, 0, 3, Alert::IllegalParameter},
    {"exchange.size", ecdhe, ServerKeyParams, 3, 4, Alert::DecodeError, {0x80}},
    {"exchange.key", ecdhe, ServerKeyParams, 4, 36, kServerEnds, {0x01}},
    {"exchange.scheme", ecdhe, ServerKeyExchange, 36, 38, Alert::IllegalParameter, {0x80}},
    {"exchange.signatureSize", ecdhe, ServerKeyExchange, 38, 40, Alert::DecodeError},
    {"exchange.signature", ecdhe, ServerKeyExchange, 40, 110, Alert::DecryptError},
    {"request.typesSize", asks, CertificateRequest, 0, 1, Alert::DecodeError},
    {"request.schemesSize", asks, CertificateRequest, 2, 4, Alert::DecodeError},
    {"request.namesSize", asks, CertificateRequest, 6, 8, Alert::DecodeError},
    {"finished", ecdhe, Finished, 0, 12, Alert::DecryptError},
};

TEST(ScriptedTls12, EachFlippedByteHasItsAlert) {
    for (const FlipRow& row : kFlips) {
        expectFlips(row);
    }
}

const std::vector<Step> kFlight = {ServerHello, Certificate, ServerKeyExchange, CertificateRequest,
                                   ServerHelloDone};

std::vector<Step> withFlight(std::initializer_list<Step> more) {
    std::vector<Step> steps = kFlight;
    steps.insert(steps.end(), more);
    return steps;
}

TEST(ScriptedTls12, TruncatedAndExtendedMessagesAreMalformed) {
    expectTruncations(
        [](ServerSetup& s) { asks(s), s.extendedMaster = s.secureRenegotiation = false; },
        withFlight({Finished}),
        [](Step step, size_t kept, size_t size) {
            // An empty block of extensions may be left out; ServerHelloDone is empty anyway.
            const bool legal =
                (step == ServerHello && kept == 70) || (step == ServerHelloDone && kept < size);
            return legal ? kLegal : Alert::DecodeError;
        });
}

TEST(ScriptedTls12, MessagesOutOfOrderAreRefused) {
    expectOrders(asks, kFlight, CertificateRequest);
}

TEST(ScriptedTls12, ForeignMessagesAreRefused) {
    expectForeign(
        asks, withFlight({ChangeCipherSpec, Finished}), [](Step step, int type, bool own) {
            // An own ServerHelloDone is right, and the one behind it comes too late. A HelloRequest
            // is ignored, but not by this server's transcript.
            if (type == 0 && step == Finished) return kLegal;
            if (type == 0) return step == ChangeCipherSpec ? Alert::DecryptError : kServerEnds;
            return own && step != ServerHelloDone ? Alert::DecodeError : Alert::UnexpectedMessage;
        });
}

TEST(ScriptedTls12, NoChangedByteOnTheWayIsBelieved) {
    expectNothingBelieved(asks, withFlight({ChangeCipherSpec, Finished}));
}

TEST(ScriptedTls12, PiecesOfEverySizeMakeNoDifference) {
    expectPieces(asks);
    expectPieces(tls10);
}

TEST(ScriptedTls12, CutAnywhereNothingIsEstablished) {
    expectCuts(ecdhe);
}

TEST(ScriptedTls12, DowngradeMarksAreJudgedByTheHelloJustSent) {
    const auto verdict = [](uint8_t last, Version highest, bool fallback = false) {
        ServerSetup setup;
        tls11(setup);
        if (last == 1) ecdhe(setup);
        setup.edits.emplace(ServerHello, [last](Item& m, Items&) { mark(m, last); });
        TlsSettings settings = namedSettings();
        settings.versions.highest = highest;
        settings.fallback = fallback;
        Talk talk(setup, settings);
        const Alert said = talk.pump().verdict();
        EXPECT_EQ(talk.server.hellos.at(0).suites.back() == 0x5600, fallback);
        return said;
    };
    EXPECT_EQ(verdict(1, Version::Tls13), Alert::IllegalParameter);
    EXPECT_NE(verdict(1, Version::Tls12), Alert::IllegalParameter);  // only logged
    EXPECT_EQ(verdict(1, Version::Tls12, true), Alert::IllegalParameter);
    EXPECT_EQ(verdict(2, Version::Tls12, true), kLegal);
    EXPECT_EQ(verdict(0, Version::Tls13), Alert::IllegalParameter);
    EXPECT_EQ(verdict(0, Version::Tls12), Alert::IllegalParameter);
    EXPECT_NE(verdict(0, Version::Tls11), Alert::IllegalParameter);
}

TEST(ScriptedTls12, SuiteLeftOutByKeywordIsRefused) {
    for (const bool of13 : {false, true}) {
        ServerSetup setup;
        if (!of13) ecdhe(setup);
        TlsSettings settings = namedSettings();
        settings.options.gcm = false;
        Talk talk(setup, settings);
        EXPECT_EQ(talk.pump().verdict(), Alert::IllegalParameter) << of13;
    }
}

TEST(ScriptedTls12, FailingRandomSourceEndsTheHandshake) {
    for (const Prepare prepare : {Prepare{ecdhe}, Prepare{dhe}, Prepare{plainRsa},
                                  Prepare{[](ServerSetup& s) { s.retry = true, s.group = 24; }}}) {
        ServerSetup setup;
        prepare(setup);
        Talk talk(setup);
        talk.environment.randomWorks = false;  // from the first hello on
        EXPECT_EQ(talk.pump().verdict(), Alert::InternalError) << talk.logText();
        EXPECT_EQ(talk.engine.failure(), Cause::TlsRandomFailed);
    }
}

// What follows a chaining value that is known must not be chosen by anybody.
TEST(ScriptedTls12, FirstByteGoesAloneInCbcRecordsOfTls10) {
    for (const Prepare prepare : {tls10, tls11}) {
        ServerSetup setup;
        prepare(setup);
        Talk talk(setup);
        ASSERT_EQ(talk.pump().verdict(), kLegal);
        EXPECT_EQ(talk.server.recordSizes.at(0), prepare == tls10 ? size_t{1} : size_t{16384});
    }
}

TEST(ScriptedTls12, WeakDhGroupIsWarnedOf) {
    for (const int bits : {1024, 2048}) {
        ServerSetup setup;
        dhe(setup);
        setup.dhPrime = dhPrime(bits);
        Talk talk(setup);
        ASSERT_EQ(talk.pump().verdict(), kLegal);
        const bool warned =
            talk.logText().find("Diffie-Hellman group has only 1024 bits") != std::string::npos;
        EXPECT_EQ(warned, bits == 1024);
    }
}

TEST(ScriptedTls12, RecordSizeLimitCountsPlaintext) {
    const std::pair<uint16_t, size_t> rows[] = {
        {64, 64}, {512, 512}, {16384, 16384}, {16385, 16384}, {0xFFFF, 16384}};
    for (const auto& [limit, largest] : rows) {
        ServerSetup setup;
        ecdhe(setup);
        setup.edits.emplace(ServerHello, [limit = limit](Item& m, Items&) {
            add(m, 28, {static_cast<uint8_t>(limit >> 8), static_cast<uint8_t>(limit)});
        });
        Talk talk(setup);
        ASSERT_EQ(talk.pump().verdict(), kLegal) << limit;
        EXPECT_EQ(*std::max_element(talk.server.recordSizes.begin(), talk.server.recordSizes.end()),
                  largest);
        // A renegotiation without the extension lifts the limit.
        talk.server.recordSizes.clear();
        talk.server.emit(HelloRequest);
        ASSERT_EQ(talk.pump().verdict(), kLegal) << limit << talk.logText();
        EXPECT_EQ(*std::max_element(talk.server.recordSizes.begin(), talk.server.recordSizes.end()),
                  size_t{16384});
    }
}

// ---- renegotiation

struct AgainRow {
    const char* name;
    Prepare prepare;
    Step step;
    void (*edit)(Item&, Items&);
    Alert expected;
    Prepare again = nullptr;  // for the renegotiation alone
    bool verifies = false;
    bool usageLacks = false;
};

const AgainRow kAgainRows[] = {
    {"legal", ecdhe, ServerHello, nullptr, kLegal},
    {"verifyChanged", ecdhe, ServerHello, EDIT(m.ext(0xFF01)[1] ^= 1), Alert::HandshakeFailure},
    {"verifyOfServerChanged", ecdhe, ServerHello, EDIT(m.ext(0xFF01)[24] ^= 1),
     Alert::HandshakeFailure},
    {"verifyEmpty", ecdhe, ServerHello, EDIT(m.ext(0xFF01) = {0}), Alert::HandshakeFailure},
    {"verifyShort", ecdhe, ServerHello, EDIT(m.ext(0xFF01).resize(13); m.ext(0xFF01)[0] = 12),
     Alert::HandshakeFailure},
    {"verifyMissing", ecdhe, ServerHello, EDIT(m.drop(0xFF01)), Alert::HandshakeFailure},
    {"versionLowered", ecdhe, ServerHello, EDIT(m.body[1] = 2), Alert::ProtocolVersion},
    {"masterGone", ecdhe, ServerHello, EDIT(m.drop(23)), Alert::HandshakeFailure},
    {"masterNew", noMaster, ServerHello, EDIT(add(m, 23)), Alert::HandshakeFailure},
    {"certificateChanged", ecdhe, Certificate, EDIT(m.body.back() ^= 1), Alert::BadCertificate},
    {"dataBeforeHello", ecdhe, ServerHello, EDIT(before(all, record(23, {1}))), kLegal},
    {"dataBeforeCcs", ecdhe, ChangeCipherSpec, EDIT(before(all, record(23, {1}))), kLegal},
    {"dataBeforeFinished", ecdhe, Finished, EDIT(before(all, record(23, {1}))),
     Alert::UnexpectedMessage},
    {"closeNotify", ecdhe, Certificate, EDIT(before(all, record(21, {1, 0}))), kSilence},
    {"usageFits", signing, ServerHello, nullptr, kLegal, ecdheRsa, true},
    {"usageLacks", signing, ServerHello, nullptr, Alert::UnsupportedCertificate, plainRsa, true,
     true},
    {"usageLacksUnverified", signing, ServerHello, nullptr, kLegal, plainRsa, false, true},
};

TEST(ScriptedTls12, RenegotiationIsHeldToItsRules) {
    for (const AgainRow& row : kAgainRows) {
        ServerSetup setup;
        row.prepare(setup);
        setup.editRound = 2;
        if (row.edit) setup.edits.emplace(row.step, row.edit);
        TlsSettings settings = namedSettings();
        settings.verifiesServer = row.verifies;
        Talk talk(setup, settings);
        ASSERT_EQ(talk.pump().verdict(), kLegal);
        talk.engine.input().clear();
        talk.server.emit(HelloRequest);
        if (row.again) row.again(talk.server.setup);
        talk.pump();
        EXPECT_EQ(wordOf(talk.verdict()), wordOf(row.expected)) << row.name << talk.logText();
        ASSERT_EQ(talk.server.hellos.size(), 2u);
        EXPECT_EQ(talk.server.hellos[1].find(0xFF01)->body.size(), 13u);
        EXPECT_TRUE(talk.server.hellos[1].sessionId.empty());
        const size_t lacks =
            talk.logText().find("its key usage lacks keyEncipherment, which TLS_R");
        EXPECT_EQ(lacks != std::string::npos, row.usageLacks) << row.name;
    }
}

TEST(ScriptedTls12, ThreeRenegotiationsAreEnough) {
    ServerSetup setup;
    ecdhe(setup);
    Talk talk(setup);
    talk.pump();
    for (int i = 0; i < 3; ++i) {
        talk.server.emit(HelloRequest);
        ASSERT_EQ(talk.pump().verdict(), kLegal) << i << talk.logText();
    }
    talk.server.emit(HelloRequest);
    EXPECT_EQ(talk.pump().verdict(), Alert::HandshakeFailure);
}

// ---- after the handshake

void sendMany(ScriptedTlsServer& server, int count, uint8_t type, const Bytes& body) {
    for (int i = 0; i < count; ++i) {
        server.send(type, body);
    }
}

// clang-format off
const PostRow kPostRows[] = {
    {"ccs", [](ScriptedTlsServer& s) { s.send(20, Bytes{1}); }, Alert::UnexpectedMessage},
    {"finished", [](ScriptedTlsServer& s) { s.emit(Finished); }, Alert::UnexpectedMessage},
    {"ticket", [](ScriptedTlsServer& s) { s.emit(NewSessionTicket); }, Alert::UnexpectedMessage},
    {"hello", [](ScriptedTlsServer& s) { s.emit(ServerHello); }, Alert::UnexpectedMessage},
    {"helloRequest", [](ScriptedTlsServer& s) { s.emit(HelloRequest); }, kLegal},
    {"helloRequestNotEmpty", [](ScriptedTlsServer& s) { s.send(22, Bytes{0, 0, 0, 1, 0}); }, Alert::DecodeError},
    {"data.inMessage", [](ScriptedTlsServer& s) { s.send(22, Bytes{0, 0}); s.send(23, Bytes{1}); }, Alert::UnexpectedMessage},
    {"data.clear", [](ScriptedTlsServer& s) { s.send(23, Bytes(40, 1), true); }, Alert::BadRecordMac},
    {"alert.clear", [](ScriptedTlsServer& s) { s.send(21, Bytes{1, 0}, true); }, Alert::BadRecordMac},
    {"record.tooLong", [](ScriptedTlsServer& s) { s.setup.recordSize = 16385; s.send(23, Bytes(16385)); }, Alert::RecordOverflow},
    {"record.announcesTooMuch", [](ScriptedTlsServer& s) { s.wire(Bytes{23, 3, 3, 0x48, 0x01}); }, Alert::RecordOverflow},
    {"idle.data33", [](ScriptedTlsServer& s) { sendMany(s, 33, 23, {}); }, Alert::UnexpectedMessage},
    {"idle.handshake33", [](ScriptedTlsServer& s) { sendMany(s, 33, 22, {}); }, Alert::UnexpectedMessage},
    {"idle.warnings33", [](ScriptedTlsServer& s) { sendMany(s, 33, 21, {1, 90}); }, Alert::UnexpectedMessage},
};

// clang-format on

TEST(ScriptedTls12, WhatMayFollowTheHandshake) {
    for (const PostRow& row : kPostRows) {
        expectPost(row, ecdhe);
    }
}

}  // namespace
}  // namespace tv::tls::test
