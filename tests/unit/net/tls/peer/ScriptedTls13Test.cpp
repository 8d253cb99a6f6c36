// TLS 1.3 against a server that misbehaves on purpose: for each change of each message the exact
// alert, or that it is legal. Signature, binder and Finished are made over the changed message, so
// that nothing but the one check in question can find it.
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/unit/net/tls/peer/ScriptedTalk.h"

namespace tv::tls::test {
namespace {

using enum Step;

// clang-format off

// ---- setups

void plain(ServerSetup&) {}
void suite384(ServerSetup& s) { s.suite = 0x1302; }
void p256(ServerSetup& s) { s.group = 23; }
void retry(ServerSetup& s) { s.retry = true, s.group = 24; }
void cookieOnly(ServerSetup& s) { s.retry = true, s.retryForGroup = false, s.cookie = {1, 2, 3}; }
void cookieAndGroup(ServerSetup& s) { retry(s), s.cookie = Bytes(300, 7); }
void twoRetries(ServerSetup& s) { retry(s), s.flight = {HelloRetry, ServerHello}; }
void rsa(ServerSetup& s) { s.key = "RSA-2048", s.scheme = 0x0804; }
void scheme(ServerSetup& s, const char* key, uint16_t number) { s.key = key, s.scheme = number; }
void asks(ServerSetup& s) {
    s.flight = {ServerHello,       EncryptedExtensions, CertificateRequest, Certificate,
                CertificateVerify, Finished};
}
void padded(ServerSetup& s) { s.padding = 100, s.recordSize = 16284; }
void fragmented(ServerSetup& s) { s.recordSize = 1; }

// ---- edits

Item ccs(Bytes body, bool plainly = true) { return record(20, std::move(body), plainly); }
Bytes entry(View certificate, const Bytes& exts) {
    const auto size = [](size_t n) { return static_cast<uint8_t>(n); };
    return joined({Bytes{size(certificate.size() >> 16), size(certificate.size() >> 8),
                         size(certificate.size())},
                   certificate, Bytes{size(exts.size() >> 8), size(exts.size())}, exts});
}
void certificates(Item& m, std::initializer_list<Bytes> entries) {
    Bytes list;
    for (const Bytes& e : entries) {
        list = joined({list, e});
    }
    m.body = joined({Bytes{0, static_cast<uint8_t>(list.size() >> 16),
                           static_cast<uint8_t>(list.size() >> 8),
                           static_cast<uint8_t>(list.size())},
                     list});
}
// A whole NewSessionTicket, which would be welcome in a record of its own.
const Bytes kTicket = {4, 0, 0, 15, 0, 0, 14, 16, 0, 0, 0, 7, 1, 1, 0, 1, 7, 0, 0};
Bytes ours() { return certificateOf(keyOf("P-256")); }
void chain(Item& m, size_t more) {
    Bytes list = entry(ours(), {});
    for (size_t i = 0; i < more; ++i) {
        list = joined({list, entry(Bytes{0x30}, {})});
    }
    certificates(m, {list});
}
void share(Item& m, Bytes key) {
    const uint8_t group = m.ext(51)[1];
    m.ext(51) = joined({Bytes{0, group, 0, static_cast<uint8_t>(key.size())}, key});
}

const Row kRows[] = {
    {"hello.legal", plain, ServerHello, nullptr, kLegal},
    {"hello.sha384", suite384, ServerHello, nullptr, kLegal},
    {"hello.secp256r1", p256, ServerHello, nullptr, kLegal},
    {"hello.extensionOrder", plain, ServerHello, EDIT(std::reverse(m.exts.begin(), m.exts.end())),
     kLegal},
    {"hello.markTo12", plain, ServerHello, EDIT(mark(m, 1)), kLegal},  // of no meaning in 1.3
    {"hello.suiteOf12", plain, ServerHello, EDIT(put(m, 67, {0xC0, 0x2B})), Alert::IllegalParameter},
    {"hello.suiteUnknown", plain, ServerHello, EDIT(put(m, 67, {0x13, 4})), Alert::IllegalParameter},
    {"hello.noSessionId", plain, ServerHello, EDIT(m.body.erase(m.body.begin() + 35, m.body.begin() + 67); m.body[34] = 0), Alert::IllegalParameter},
    {"hello.sessionId33", plain, ServerHello, EDIT(m.body.insert(m.body.begin() + 35, 1); m.body[34] = 33), Alert::DecodeError},
    {"hello.selects12", plain, ServerHello, EDIT(m.ext(43) = {3, 3}), Alert::IllegalParameter},
    {"hello.selectsUnknown", plain, ServerHello, EDIT(m.ext(43) = {3, 5}), Alert::IllegalParameter},
    {"hello.versionTrailing", plain, ServerHello, EDIT(m.ext(43).push_back(0)), Alert::DecodeError},
    {"hello.noVersion", plain, ServerHello, EDIT(m.drop(43)), Alert::IllegalParameter},
    {"hello.noShare", plain, ServerHello, EDIT(m.drop(51)), Alert::MissingExtension},
    {"hello.nothing", plain, ServerHello, EDIT(m.exts.clear()), Alert::IllegalParameter},
    {"hello.twoVersions", plain, ServerHello, EDIT(add(m, 43, {3, 4})), Alert::IllegalParameter},
    {"hello.twoShares", plain, ServerHello, EDIT(m.exts.push_back(m.exts[0])), Alert::IllegalParameter},
    {"hello.unknownExtension", plain, ServerHello, EDIT(add(m, 0x1234)), Alert::UnsupportedExtension},
    {"hello.cookie", plain, ServerHello, EDIT(add(m, 44, {0, 1, 1})), Alert::UnsupportedExtension},
    {"hello.pskNotOffered", plain, ServerHello, EDIT(add(m, 41, {0, 0})), Alert::UnsupportedExtension},
    {"hello.groupsMisplaced", plain, ServerHello, EDIT(add(m, 10, {0, 2, 0, 29})), Alert::IllegalParameter},
    {"hello.masterMisplaced", plain, ServerHello, EDIT(add(m, 23)), Alert::IllegalParameter},
    {"hello.limitMisplaced", plain, ServerHello, EDIT(add(m, 28, {64, 1})), Alert::IllegalParameter},
    {"hello.renegotiationMisplaced", plain, ServerHello, EDIT(add(m, 0xFF01, {0})), Alert::IllegalParameter},
    {"hello.nameMisplaced", plain, ServerHello, EDIT(add(m, 0)), Alert::IllegalParameter},
    {"hello.shareWithoutGroup", plain, ServerHello, EDIT(put(m.flat(), 77, {24})), Alert::IllegalParameter},
    {"hello.shareZero", plain, ServerHello, EDIT(share(m, Bytes(32))), Alert::IllegalParameter},
    {"hello.shareShort", plain, ServerHello, EDIT(share(m, Bytes(31, 9))), Alert::IllegalParameter},
    {"hello.shareLong", plain, ServerHello, EDIT(share(m, Bytes(33, 9))), Alert::IllegalParameter},
    {"hello.shareEmpty", plain, ServerHello, EDIT(share(m, {})), Alert::DecodeError},
    {"hello.shareTrailing", plain, ServerHello, EDIT(m.ext(51).push_back(0)), Alert::DecodeError},
    {"hello.pointOffCurve", p256, ServerHello, EDIT(m.ext(51).back() ^= 1), Alert::IllegalParameter},
    {"hello.pointCompressed", p256, ServerHello, EDIT(Bytes k(m.ext(51).begin() + 4, m.ext(51).begin() + 37); k[0] = 2; share(m, k)), Alert::IllegalParameter},
    {"hello.pointHybrid", p256, ServerHello, EDIT(m.ext(51)[4] = static_cast<uint8_t>(6 | (m.ext(51).back() & 1))), Alert::IllegalParameter},
    {"hello.pointInfinity", p256, ServerHello, EDIT(share(m, {0})), Alert::IllegalParameter},
    {"hello.leftover", plain, ServerHello, EDIT(m.tail = {8}), Alert::UnexpectedMessage},

    {"retry.legal", retry, HelloRetry, nullptr, kLegal},
    {"retry.cookieOnly", cookieOnly, HelloRetry, nullptr, kLegal},
    {"retry.cookieAndGroup", cookieAndGroup, HelloRetry, nullptr, kLegal},
    {"retry.nothingNew", [](ServerSetup& s) { s.retry = true, s.retryForGroup = false; }, HelloRetry, nullptr, Alert::IllegalParameter},
    {"retry.longCookie", [](ServerSetup& s) { cookieOnly(s), s.cookie = Bytes(65300, 7); }, HelloRetry, nullptr, kLegal},
    {"retry.tooLongCookie", [](ServerSetup& s) { cookieOnly(s), s.cookie = Bytes(65310, 7); }, HelloRetry, nullptr, Alert::IllegalParameter},
    {"retry.emptyCookie", cookieAndGroup, HelloRetry, EDIT(m.ext(44) = {0, 0}), Alert::DecodeError},
    {"retry.groupHadShare", [](ServerSetup& s) { s.retry = true; }, HelloRetry, nullptr, Alert::IllegalParameter},
    {"retry.groupNotOffered", [](ServerSetup& s) { s.retry = true, s.group = 26; }, HelloRetry, nullptr, Alert::IllegalParameter},
    {"retry.groupUnknown", retry, HelloRetry, EDIT(m.ext(51) = {0x2A, 0x2A}), Alert::IllegalParameter},
    {"retry.groupTrailing", retry, HelloRetry, EDIT(m.ext(51).push_back(0)), Alert::DecodeError},
    {"retry.twice", twoRetries, HelloRetry, nullptr, Alert::UnexpectedMessage},
    {"retry.otherSuiteLater", retry, HelloRetry, EDIT(put(m, 67, {0x13, 3})), Alert::IllegalParameter},
    {"retry.suiteOf12", retry, HelloRetry, EDIT(put(m, 67, {0xC0, 0x2B})), Alert::IllegalParameter},
    {"retry.otherGroupLater", retry, ServerHello, EDIT(m.ext(51) = joined({Bytes{0, 23, 0, 65}, publicOf(groupKey(23).get())})), Alert::IllegalParameter},
    {"retry.version12Later", retry, ServerHello, EDIT(m.exts.clear(); put(m, 67, {0xC0, 0x2B})), Alert::IllegalParameter},
    {"retry.sessionId", retry, HelloRetry, EDIT(m.body[40] ^= 1), Alert::IllegalParameter},
    {"retry.legacyVersion", retry, HelloRetry, EDIT(m.body[1] = 2), Alert::IllegalParameter},
    {"retry.compression", retry, HelloRetry, EDIT(m.body.back() = 1), Alert::IllegalParameter},
    {"retry.selects12", retry, HelloRetry, EDIT(m.ext(43) = {3, 3}), Alert::IllegalParameter},
    {"retry.of12", [](ServerSetup& s) { retry(s); s.edits.emplace(ServerHello, EDIT(m.exts.clear(); m.body[40] ^= 1; put(m, 67, {0xC0, 0x2B}))); }, HelloRetry, EDIT(m.drop(43); put(m, 67, {0xC0, 0x2B})), Alert::IllegalParameter},
    {"retry.noVersion", retry, HelloRetry, EDIT(m.drop(43)), Alert::IllegalParameter},
    {"retry.twoGroups", retry, HelloRetry, EDIT(add(m, 51, {0, 24})), Alert::IllegalParameter},
    {"retry.unknownExtension", retry, HelloRetry, EDIT(add(m, 0x1234)), Alert::UnsupportedExtension},
    {"retry.limitMisplaced", retry, HelloRetry, EDIT(add(m, 28, {64, 1})), Alert::IllegalParameter},
    {"retry.leftover", retry, HelloRetry, EDIT(m.tail = {2}), Alert::UnexpectedMessage},

    {"extensions.empty", plain, EncryptedExtensions, EDIT(m.exts.clear()), kLegal},
    {"extensions.name", plain, EncryptedExtensions, EDIT(add(m, 0)), kLegal},
    {"extensions.nameNotEmpty", plain, EncryptedExtensions, EDIT(add(m, 0, {0})), Alert::DecodeError},
    {"extensions.groups", plain, EncryptedExtensions, EDIT(add(m, 10, {0, 2, 0, 29})), kLegal},
    {"extensions.oddGroups", plain, EncryptedExtensions, EDIT(add(m, 10, {0, 1, 0})), Alert::DecodeError},
    {"extensions.limit64", plain, EncryptedExtensions, EDIT(m.ext(28) = {0, 64}), kLegal},
    {"extensions.limit63", plain, EncryptedExtensions, EDIT(m.ext(28) = {0, 63}), Alert::IllegalParameter},
    {"extensions.limitHuge", plain, EncryptedExtensions, EDIT(m.ext(28) = {0xFF, 0xFF}), kLegal},
    {"extensions.limitShort", plain, EncryptedExtensions, EDIT(m.ext(28) = {1}), Alert::DecodeError},
    {"extensions.limitLong", plain, EncryptedExtensions, EDIT(m.ext(28) = {1, 1, 1}), Alert::DecodeError},
    {"extensions.twoLimits", plain, EncryptedExtensions, EDIT(add(m, 28, {64, 1})), Alert::IllegalParameter},
    {"extensions.unknown", plain, EncryptedExtensions, EDIT(add(m, 0x1234)), Alert::UnsupportedExtension},
    {"extensions.protocol", plain, EncryptedExtensions, EDIT(add(m, 16, {0, 3, 2, 'h', '2'})), Alert::UnsupportedExtension},
    {"extensions.earlyData", plain, EncryptedExtensions, EDIT(add(m, 42)), Alert::UnsupportedExtension},
    {"extensions.versionMisplaced", plain, EncryptedExtensions, EDIT(add(m, 43, {3, 4})), Alert::IllegalParameter},
    {"extensions.shareMisplaced", plain, EncryptedExtensions, EDIT(add(m, 51, {0, 29, 0, 1, 1})), Alert::IllegalParameter},
    {"extensions.statusMisplaced", plain, EncryptedExtensions, EDIT(add(m, 5)), Alert::IllegalParameter},
    {"extensions.masterMisplaced", plain, EncryptedExtensions, EDIT(add(m, 23)), Alert::IllegalParameter},
    {"extensions.modesMisplaced", plain, EncryptedExtensions, EDIT(add(m, 45, {1, 1})), Alert::IllegalParameter},

    {"request.legal", asks, CertificateRequest, nullptr, kLegal},
    {"request.unknownExtension", asks, CertificateRequest, EDIT(add(m, 0x1234, {1})), kLegal},
    {"request.context", asks, CertificateRequest, EDIT(m.body = {1, 1}), Alert::IllegalParameter},
    {"request.noAlgorithms", asks, CertificateRequest, EDIT(m.drop(13)), Alert::MissingExtension},
    {"request.oddAlgorithms", asks, CertificateRequest, EDIT(m.ext(13) = {0, 1, 4}), Alert::DecodeError},
    {"request.emptyAlgorithms", asks, CertificateRequest, EDIT(m.ext(13) = {0, 0}), Alert::DecodeError},
    {"request.twoAlgorithms", asks, CertificateRequest, EDIT(add(m, 13, {0, 2, 4, 3})), Alert::IllegalParameter},

    {"certificate.none", plain, Certificate, EDIT(certificates(m, {})), Alert::DecodeError},
    {"certificate.empty", plain, Certificate, EDIT(certificates(m, {entry({}, {})})), Alert::DecodeError},
    {"certificate.context", plain, Certificate, EDIT(m.body[0] = 1; m.body.insert(m.body.begin() + 1, 5)), Alert::IllegalParameter},
    {"certificate.status", plain, Certificate, EDIT(certificates(m, {entry(ours(), {0, 5, 0, 5, 1, 0, 0, 1, 7})})), kLegal},
    {"certificate.statusMalformed", plain, Certificate, EDIT(certificates(m, {entry(ours(), {0, 5, 0, 4, 1, 0, 0, 1})})), Alert::DecodeError},
    {"certificate.twoStatuses", plain, Certificate, EDIT(certificates(m, {entry(ours(), {0, 5, 0, 5, 1, 0, 0, 1, 7, 0, 5, 0, 5, 1, 0, 0, 1, 7})})), Alert::IllegalParameter},
    {"certificate.unsolicited", plain, Certificate, EDIT(certificates(m, {entry(ours(), {0, 18, 0, 0})})), Alert::UnsupportedExtension},
    {"certificate.odd", plain, Certificate, EDIT(certificates(m, {entry(Bytes{0x30, 0}, {})})), Alert::BadCertificate},
    {"certificate.sixtyFour", plain, Certificate, EDIT(chain(m, 63)), kLegal},
    {"certificate.sixtyFive", plain, Certificate, EDIT(chain(m, 64)), Alert::DecodeError},
    {"certificate.otherKey", plain, Certificate, EDIT(certificates(m, {entry(certificateOf(keyOf("P-384")), {})})), Alert::IllegalParameter},
    {"certificate.sameCurveOtherKey", plain, CertificateVerify, EDIT(const Bytes s = signatureOf(groupKey(23).get(), 0x0403, Bytes(64)); m.body = joined({Bytes{4, 3, 0, static_cast<uint8_t>(s.size())}, s})), Alert::DecryptError},
    {"certificate.long", plain, Certificate, EDIT(m.length = 128 * 1024 + 1), Alert::IllegalParameter},
    {"certificate.longest", plain, Certificate, EDIT(m.length = 128 * 1024), kSilence},
    {"extensions.long", plain, EncryptedExtensions, EDIT(m.length = 64 * 1024 + 1), Alert::IllegalParameter},

    {"verify.rsaPss256", rsa, CertificateVerify, nullptr, kLegal},
    {"verify.rsaPss384", [](ServerSetup& s) { scheme(s, "RSA-2048", 0x0805); }, CertificateVerify, nullptr, kLegal},
    {"verify.rsaPss512", [](ServerSetup& s) { scheme(s, "RSA-2048", 0x0806); }, CertificateVerify, nullptr, kLegal},
    {"verify.p384", [](ServerSetup& s) { scheme(s, "P-384", 0x0503); }, CertificateVerify, nullptr, kLegal},
    {"verify.p521", [](ServerSetup& s) { scheme(s, "P-521", 0x0603); }, CertificateVerify, nullptr, kLegal},
    {"verify.pkcs1", [](ServerSetup& s) { scheme(s, "RSA-2048", 0x0401); }, CertificateVerify, nullptr, Alert::IllegalParameter},
    {"verify.pkcs1Sha1", [](ServerSetup& s) { scheme(s, "RSA-2048", 0x0201); }, CertificateVerify, nullptr, Alert::IllegalParameter},
    {"verify.md5", [](ServerSetup& s) { scheme(s, "RSA-2048", 0x0101); }, CertificateVerify, nullptr, Alert::IllegalParameter},
    {"verify.ecdsaSha1", [](ServerSetup& s) { scheme(s, "P-256", 0x0203); }, CertificateVerify, nullptr, Alert::IllegalParameter},
    {"verify.hashOfOtherCurve", [](ServerSetup& s) { scheme(s, "P-256", 0x0503); }, CertificateVerify, nullptr, Alert::IllegalParameter},
    {"verify.schemeOfOtherKind", rsa, CertificateVerify, EDIT(put(m, 0, {4, 3})), Alert::IllegalParameter},
    {"verify.unknownScheme", plain, CertificateVerify, EDIT(put(m, 0, {8, 7})), Alert::IllegalParameter},
    {"verify.empty", plain, CertificateVerify, EDIT(m.body = {4, 3, 0, 0}), Alert::DecryptError},

    {"finished.short", plain, Finished, EDIT(m.body.pop_back()), Alert::DecodeError},
    {"finished.long", plain, Finished, EDIT(m.body.push_back(0)), Alert::DecodeError},
    {"finished.empty", plain, Finished, EDIT(m.body.clear()), Alert::DecodeError},
    {"finished.leftover", plain, Finished, EDIT(m.tail = kTicket), Alert::UnexpectedMessage},

    {"ccs.beforeHello", plain, ServerHello, EDIT(before(all, ccs({1}))), kLegal},
    {"ccs.afterHello", plain, EncryptedExtensions, EDIT(before(all, ccs({1}))), kLegal},
    {"ccs.beforeFinished", plain, Finished, EDIT(before(all, ccs({1}))), kLegal},
    {"ccs.32", plain, EncryptedExtensions, EDIT(before(all, ccs({1}), 32)), kLegal},
    {"ccs.33", plain, EncryptedExtensions, EDIT(before(all, ccs({1}), 33)), Alert::UnexpectedMessage},
    {"ccs.inMessage", plain, EncryptedExtensions, EDIT(before(all, ccs({1})); before(all, record(22, {8}))), Alert::UnexpectedMessage},
    {"ccs.otherByte", plain, EncryptedExtensions, EDIT(before(all, ccs({2}))), Alert::UnexpectedMessage},
    {"ccs.twoBytes", plain, EncryptedExtensions, EDIT(before(all, ccs({1, 1}))), Alert::UnexpectedMessage},
    {"ccs.empty", plain, EncryptedExtensions, EDIT(before(all, ccs({}))), Alert::UnexpectedMessage},
    {"ccs.protected", plain, EncryptedExtensions, EDIT(before(all, ccs({1}, false))), Alert::UnexpectedMessage},
    {"ccs.afterRetry", retry, HelloRetry, EDIT(all.push_back(ccs({1}))), kLegal},
    {"ccs.afterRetryAndHello", retry, HelloRetry, EDIT(all.push_back(ccs({1})); all.push_back(ccs({1}))), kLegal},

    {"record.dataBeforeHello", plain, ServerHello, EDIT(before(all, record(23, {1}, true))), Alert::UnexpectedMessage},
    {"record.dataBeforeFinished", plain, Finished, EDIT(before(all, record(23, {1}))), Alert::UnexpectedMessage},
    {"record.emptyDataBeforeFinished", plain, Finished, EDIT(before(all, record(23, {}))), Alert::UnexpectedMessage},
    {"record.heartbeat", plain, ServerHello, EDIT(before(all, record(24, {1}, true))), Alert::UnexpectedMessage},
    {"record.protectedHeartbeat", plain, Finished, EDIT(before(all, record(24, {1}))), Alert::UnexpectedMessage},
    {"record.onlyPadding", plain, Finished, EDIT(before(all, record(0, {}))), Alert::UnexpectedMessage},
    {"record.clearHandshake", plain, EncryptedExtensions, EDIT(m.plain = true), Alert::UnexpectedMessage},
    {"record.clearAlert", plain, EncryptedExtensions, EDIT(before(all, record(21, {1, 0}, true))), Alert::UnexpectedMessage},
    {"record.emptyHandshake", plain, Finished, EDIT(before(all, record(22, {}))), Alert::UnexpectedMessage},
    {"record.emptyAlert", plain, Finished, EDIT(before(all, record(21, {}))), Alert::UnexpectedMessage},
    {"record.alertOfOneByte", plain, Finished, EDIT(before(all, record(21, {2}))), Alert::DecodeError},
    {"record.alertOfThreeBytes", plain, Finished, EDIT(before(all, record(21, {2, 40, 0}))), Alert::DecodeError},
    {"record.fatalAlert", plain, Finished, EDIT(before(all, record(21, {2, 40}))), kSilence},
    {"record.warningIsFatal", plain, Finished, EDIT(before(all, record(21, {1, 112}))), kSilence},
    {"record.warningInMessage", plain, Finished, EDIT(before(all, record(21, {1, 90})); before(all, record(22, {20, 0}))), Alert::UnexpectedMessage},
    {"record.fatalInMessage", plain, Finished, EDIT(before(all, record(21, {2, 40})); before(all, record(22, {20, 0}))), kSilence},
    {"record.userCanceled", plain, Finished, EDIT(before(all, record(21, {1, 90}))), kLegal},
    {"record.closeNotify", plain, Finished, EDIT(before(all, record(21, {1, 0}))), kSilence},
    {"record.padded", padded, Finished, nullptr, kLegal},
    {"record.oneByteEach", fragmented, Finished, nullptr, kLegal},
};

// clang-format on

TEST(ScriptedTls13, EachMutationHasItsAlert) {
    for (const Row& row : kRows) {
        expectRow(row);
    }
}

// Offsets: 0 version, 2 random, 34 session ID, 67 suite, 69 compression, 70 extensions: key_share
// (72 type, 74 length, 76 group, 78 length, 80 key), supported_versions (112, 114, 116).
const FlipRow kFlips[] = {
    {"hello.version", plain, ServerHello, 0, 2, Alert::IllegalParameter},
    {"hello.random", plain, ServerHello, 2, 34, kLegal},
    {"hello.sessionIdSize", plain, ServerHello, 34, 35, Alert::DecodeError},
    {"hello.sessionId", plain, ServerHello, 35, 67, Alert::IllegalParameter},
    {"hello.suite", plain, ServerHello, 67, 69, Alert::IllegalParameter},
    {"hello.compression", plain, ServerHello, 69, 70, Alert::IllegalParameter},
    {"hello.extensionsSize", plain, ServerHello, 70, 72, Alert::DecodeError},
    {"hello.shareType", plain, ServerHello, 72, 74, Alert::UnsupportedExtension},
    {"hello.shareSize", plain, ServerHello, 74, 75, Alert::DecodeError},
    {"hello.group", plain, ServerHello, 76, 78, Alert::IllegalParameter},
    {"hello.keySize", plain, ServerHello, 78, 80, Alert::DecodeError},
    {"hello.key", plain, ServerHello, 80, 112, Alert::BadRecordMac, {0x01}},
    {"hello.versionsType", plain, ServerHello, 112, 114, Alert::IllegalParameter},
    {"hello.versionsSize", plain, ServerHello, 114, 116, Alert::IllegalParameter, {0x80}},
    {"hello.versions", plain, ServerHello, 116, 118, Alert::IllegalParameter},
    {"retry.random", retry, HelloRetry, 2, 34, Alert::DecodeError, {0x01}},
    {"extensions.size", plain, EncryptedExtensions, 0, 2, Alert::DecodeError},
    {"request.contextSize", asks, CertificateRequest, 0, 1, Alert::DecodeError},
    {"request.size", asks, CertificateRequest, 1, 3, Alert::DecodeError},
    {"certificate.contextSize", plain, Certificate, 0, 1, Alert::DecodeError},
    {"certificate.listSize", plain, Certificate, 1, 4, Alert::DecodeError},
    {"certificate.size", plain, Certificate, 4, 7, Alert::DecodeError},
    {"verify.scheme", plain, CertificateVerify, 0, 2, Alert::IllegalParameter},
    {"verify.size", plain, CertificateVerify, 2, 4, Alert::DecodeError},
    {"verify.signature", plain, CertificateVerify, 4, 74, Alert::DecryptError},
    {"finished", plain, Finished, 0, 32, Alert::DecryptError},
};

TEST(ScriptedTls13, EachFlippedByteHasItsAlert) {
    for (const FlipRow& row : kFlips) {
        expectFlips(row);
    }
}

const std::vector<Step> kFlight = {ServerHello, EncryptedExtensions, CertificateRequest,
                                   Certificate, CertificateVerify,   Finished};

TEST(ScriptedTls13, TruncatedAndExtendedMessagesAreMalformed) {
    expectTruncations(asks, kFlight, [](Step step, size_t kept, size_t) {
        // A hello that ends before its extensions is one of TLS 1.2 with a suite of TLS 1.3.
        return step == ServerHello && kept == 70 ? Alert::IllegalParameter : Alert::DecodeError;
    });
}

TEST(ScriptedTls13, MessagesOutOfOrderAreRefused) {
    expectOrders(asks, kFlight, CertificateRequest);
}

TEST(ScriptedTls13, ForeignMessagesAreRefused) {
    expectForeign(asks, kFlight, [](Step step, int type, bool own) {
        const bool certificateInPlaceOfRequest = step == CertificateRequest && type == 11;
        if (own || certificateInPlaceOfRequest) return Alert::DecodeError;
        // A HelloRequest before the version is known is left out of the transcript.
        const bool ignored = step == ServerHello && type == 0;
        return ignored ? Alert::BadRecordMac : Alert::UnexpectedMessage;
    });
}

TEST(ScriptedTls13, NoChangedByteOnTheWayIsBelieved) {
    expectNothingBelieved(asks, kFlight);
    expectNothingBelieved(cookieOnly, {HelloRetry, ServerHello});
}

// ---- after the handshake

void sendMany(ScriptedTlsServer& server, int count, uint8_t type, const Bytes& body) {
    for (int i = 0; i < count; ++i) {
        server.send(type, body);
    }
}
void edited(ScriptedTlsServer& server, Step step, const Edit& edit) {
    server.setup.edits.emplace(step, edit);
    server.emit(step);
}

// clang-format off
const PostRow kPostRows[] = {
    {"nothing", [](ScriptedTlsServer&) {}, kLegal},
    {"ticket", [](ScriptedTlsServer& s) { s.emit(NewSessionTicket); }, kLegal},
    {"ticket.unknownExtension", [](ScriptedTlsServer& s) { edited(s, NewSessionTicket, EDIT(add(m, 0x1234))); }, kLegal},
    {"ticket.twoExtensions", [](ScriptedTlsServer& s) { edited(s, NewSessionTicket, EDIT(add(m, 42, {0, 0, 0, 0}); add(m, 42, {0, 0, 0, 0}))); }, Alert::IllegalParameter},
    {"ticket.empty", [](ScriptedTlsServer& s) { edited(s, NewSessionTicket, EDIT(m.body = {0, 0, 1, 0, 0, 0, 0, 7, 0, 0, 0})); }, Alert::DecodeError},
    {"ticket.trailing", [](ScriptedTlsServer& s) { edited(s, NewSessionTicket, EDIT(m.flat().body.push_back(0))); }, Alert::DecodeError},
    {"update", [](ScriptedTlsServer& s) { s.emit(KeyUpdate); }, kLegal},
    {"update.requested", [](ScriptedTlsServer& s) { edited(s, KeyUpdate, EDIT(m.body = {1})); }, kLegal},
    {"update.requestedOften", [](ScriptedTlsServer& s) { s.setup.edits.emplace(KeyUpdate, EDIT(m.body = {1})); for (int i = 0; i < 5; ++i) s.emit(KeyUpdate); }, kLegal},
    {"update.otherValue", [](ScriptedTlsServer& s) { edited(s, KeyUpdate, EDIT(m.body = {2})); }, Alert::IllegalParameter},
    {"update.empty", [](ScriptedTlsServer& s) { edited(s, KeyUpdate, EDIT(m.body = {})); }, Alert::DecodeError},
    {"update.long", [](ScriptedTlsServer& s) { edited(s, KeyUpdate, EDIT(m.body = {0, 0})); }, Alert::DecodeError},
    {"update.leftover", [](ScriptedTlsServer& s) { edited(s, KeyUpdate, EDIT(m.tail = kTicket)); }, Alert::UnexpectedMessage},
    {"request", [](ScriptedTlsServer& s) { s.emit(CertificateRequest); }, Alert::UnexpectedMessage},
    {"finished", [](ScriptedTlsServer& s) { s.emit(Finished); }, Alert::UnexpectedMessage},
    {"helloRequest", [](ScriptedTlsServer& s) { s.emit(HelloRequest); }, Alert::UnexpectedMessage},
    {"ccs", [](ScriptedTlsServer& s) { s.emit(ChangeCipherSpec); }, Alert::UnexpectedMessage},
    {"ccs.protected", [](ScriptedTlsServer& s) { s.send(20, Bytes{1}); }, Alert::UnexpectedMessage},
    {"data.inMessage", [](ScriptedTlsServer& s) { s.send(22, Bytes{4, 0}); s.send(23, Bytes{1}); }, Alert::UnexpectedMessage},
    {"data.clear", [](ScriptedTlsServer& s) { s.send(23, Bytes(40, 1), true); }, Alert::BadRecordMac},
    {"record.tooLong", [](ScriptedTlsServer& s) { s.setup.recordSize = 16385; s.send(23, Bytes(16385)); }, Alert::RecordOverflow},
    {"record.longPadding", [](ScriptedTlsServer& s) { s.setup.padding = 1; s.send(23, Bytes(16384)); }, Alert::RecordOverflow},
    {"record.longest", [](ScriptedTlsServer& s) { s.send(23, Bytes(16384)); }, kLegal},
    {"record.announcesTooMuch", [](ScriptedTlsServer& s) { s.wire(Bytes{23, 3, 3, 0x41, 0x01}); }, Alert::RecordOverflow},
    {"record.version", [](ScriptedTlsServer& s) { s.wire(Bytes{23, 2, 0, 0, 30}); }, Alert::ProtocolVersion},
    {"idle.data32", [](ScriptedTlsServer& s) { sendMany(s, 32, 23, {}); }, kLegal},
    {"idle.data33", [](ScriptedTlsServer& s) { sendMany(s, 33, 23, {}); }, Alert::UnexpectedMessage},
    {"idle.warnings33", [](ScriptedTlsServer& s) { sendMany(s, 33, 21, {1, 90}); }, Alert::UnexpectedMessage},
    {"idle.updates33", [](ScriptedTlsServer& s) { for (int i = 0; i < 33; ++i) s.emit(KeyUpdate); }, Alert::UnexpectedMessage},
    {"idle.tickets33", [](ScriptedTlsServer& s) { for (int i = 0; i < 33; ++i) s.emit(NewSessionTicket); }, Alert::UnexpectedMessage},
    {"idle.mixed", [](ScriptedTlsServer& s) { sendMany(s, 16, 21, {1, 90}); sendMany(s, 17, 23, {}); }, Alert::UnexpectedMessage},
    {"idle.dataBetween", [](ScriptedTlsServer& s) { sendMany(s, 32, 23, {}); s.send(23, Bytes{1}); sendMany(s, 32, 23, {}); }, kLegal},
};

// clang-format on

TEST(ScriptedTls13, WhatMayFollowTheHandshake) {
    for (const PostRow& row : kPostRows) {
        expectPost(row, plain);
    }
}

TEST(ScriptedTls13, NothingCountsBehindCloseNotify) {
    Talk talk({});
    talk.pump().server.send(21, Bytes{1, 0});
    sendMany(talk.server, 4, 23, Bytes(16384));
    talk.pump();
    EXPECT_TRUE(talk.engine.closeNotifyReceived()) << talk.logText();
    EXPECT_TRUE(talk.engine.input().empty());
    EXPECT_EQ(talk.engine.room().size(), RecordLayer::kReceiveSize);
}

TEST(ScriptedTls13, RequestAfterTheHandshakeIsAnsweredWhereItWasOffered) {
    TlsSettings settings = namedSettings();
    settings.options.postHandshakeAuth = true;
    Talk talk({}, settings);
    ASSERT_EQ(talk.pump().verdict(), kLegal);
    edited(talk.server, CertificateRequest, EDIT(m.body = {2, 'i', 'd'}));
    EXPECT_EQ(talk.pump().verdict(), kLegal) << talk.logText();
    EXPECT_EQ(talk.server.clientFinished, 2);
    EXPECT_EQ(talk.server.clientCertificate, (Bytes{2, 'i', 'd', 0, 0, 0}));
}

// ---- how it arrives

TEST(ScriptedTls13, PiecesOfEverySizeMakeNoDifference) {
    expectPieces([](ServerSetup& s) { cookieOnly(s), asks(s); });
}

TEST(ScriptedTls13, CutAnywhereNothingIsEstablished) {
    expectCuts(plain);
    expectCuts(cookieOnly);
}

TEST(ScriptedTls13, SecondHelloKeepsWhatItMustKeep) {
    ServerSetup setup;
    cookieAndGroup(setup);
    Talk talk(setup);
    ASSERT_EQ(talk.pump().verdict(), kLegal) << talk.logText();
    ASSERT_EQ(talk.server.hellos.size(), 2u);
    const auto& first = talk.server.hellos[0];
    const auto& second = talk.server.hellos[1];
    EXPECT_EQ(first.random, second.random);
    EXPECT_EQ(first.sessionId, second.sessionId);
    EXPECT_EQ(first.suites, second.suites);
    std::vector<uint16_t> order, repeated;
    for (const Extension& e : first.exts) {
        order.push_back(e.type);
        const bool same = second.find(e.type) && e.body == second.find(e.type)->body;
        EXPECT_EQ(same, e.type != 51) << e.type;
    }
    for (const Extension& e : second.exts) {
        if (e.type != 44) repeated.push_back(e.type);
    }
    EXPECT_EQ(order, repeated);
    EXPECT_EQ(second.find(44)->body, joined({Bytes{1, 44}, Bytes(300, 7)}));
    const Bytes& shares = second.find(51)->body;
    EXPECT_EQ(shares.size(), 2u + 4u + 97u);
    EXPECT_EQ(Bytes(shares.begin(), shares.begin() + 6), (Bytes{0, 101, 0, 24, 0, 97}));
}

TEST(ScriptedTls13, CookieAloneKeepsBothShares) {
    ServerSetup setup;
    cookieOnly(setup);
    Talk talk(setup);
    ASSERT_EQ(talk.pump().verdict(), kLegal);
    EXPECT_EQ(talk.server.hellos[0].find(51)->body, talk.server.hellos[1].find(51)->body);
}

TEST(ScriptedTls13, RecordSizeLimitCountsTypeAndPadding) {
    const std::pair<uint16_t, size_t> rows[] = {
        {64, 63}, {512, 511}, {16384, 16383}, {16385, 16384}, {0xFFFF, 16384}};
    for (const auto& [limit, largest] : rows) {
        ServerSetup setup;
        setup.edits.emplace(EncryptedExtensions, [limit = limit](Item& m, Items&) {
            m.ext(28) = {static_cast<uint8_t>(limit >> 8), static_cast<uint8_t>(limit)};
        });
        Talk talk(setup);
        ASSERT_EQ(talk.pump().verdict(), kLegal) << limit;
        EXPECT_EQ(*std::max_element(talk.server.recordSizes.begin(), talk.server.recordSizes.end()),
                  largest);
    }
}

}  // namespace
}  // namespace tv::tls::test
