// Sessions, and what is tolerated because deployed servers do it, against the scripted server.
#include <gtest/gtest.h>

#include <openssl/x509.h>

#include <algorithm>

#include "tests/unit/net/tls/peer/ScriptedTalk.h"

namespace tv::tls::test {
namespace {

using enum Step;

constexpr uint64_t kHour = 3600 * 1000, kDay = 24 * kHour;
constexpr uint16_t kPreSharedKey = 41;

// clang-format off
void tls13(ServerSetup& s) { s.ticket = true; }
void tls12(ServerSetup& s) { s.version = 0x0303, s.suite = 0xC009; }
void noMaster(ServerSetup& s) { tls12(s), s.extendedMaster = false; }
void gcm12(ServerSetup& s) { tls12(s), s.suite = 0xC02B; }
void tls11(ServerSetup& s) { tls12(s), s.version = 0x0302; }
void tls10(ServerSetup& s) { tls12(s), s.version = 0x0301; }
// clang-format on

// A finished first connection: the session the client keeps and what the server remembers.
struct First {
    explicit First(void (*prepare)(ServerSetup&)) {
        ServerSetup setup;
        prepare(setup);
        Talk talk(setup);
        EXPECT_EQ(talk.pump().verdict(), kLegal) << talk.logText();
        settings = namedSettings();
        settings.session = talk.engine.takeSession();
        EXPECT_TRUE(settings.session);
        EXPECT_FALSE(talk.engine.takeSession());
        now = talk.environment.nowMs;
        again = setup;
        again.sessionId = talk.server.sessionId;
        again.sessionSecret = talk.server.sessionSecret;
    }
    TlsSettings settings;
    ServerSetup again;
    uint64_t now = 0;
};

// A Talk whose clock is moved before the hello is made.
struct LaterTalk : Talk {
    LaterTalk(const First& first, uint64_t later) : Talk(first.again, moved(first, later)) {}
    static TlsSettings moved(const First& first, uint64_t later) {
        TlsSettings settings = first.settings;
        if (settings.session) settings.session->receivedAtMs -= later;
        return settings;
    }
};

// clang-format off
struct ResumeRow {
    const char* name;
    void (*prepare)(ServerSetup&);
    void (*change)(First&);
    Step step;
    void (*edit)(Item&, Items&);
    Alert expected;
    bool resumed;
};

void nothing(First&) {}
void forgotten(First& f) { f.again.sessionSecret.clear(), f.again.sessionId.clear(); }

const ResumeRow kResumeRows[] = {
    {"ticket", tls13, nothing, ServerHello, nullptr, kLegal, true},
    {"ticket.forgotten", tls13, forgotten, ServerHello, nullptr, kLegal, false},
    {"ticket.keyAlone", tls13, [](First& f) { f.again.keyShare = false; }, ServerHello, nullptr, kLegal, true},
    {"ticket.retry", tls13, [](First& f) { f.again.retry = true, f.again.group = 24; }, ServerHello, nullptr, kLegal, true},
    {"ticket.retryWithCookie", tls13, [](First& f) { f.again.retry = true, f.again.retryForGroup = false, f.again.cookie = {9}; }, ServerHello, nullptr, kLegal, true},
    {"ticket.sameHashOtherSuite", tls13, [](First& f) { f.settings.session->suite = 0x1303; }, ServerHello, nullptr, kLegal, true},
    {"ticket.otherHash", tls13, [](First& f) { f.again.suite = 0x1302; }, ServerHello, nullptr, Alert::IllegalParameter, false},
    {"ticket.droppedByRetry", tls13, [](First& f) { f.again.suite = 0x1302, f.again.retry = true, f.again.group = 24; }, ServerHello, nullptr, Alert::UnsupportedExtension, false},
    {"ticket.index", tls13, nothing, ServerHello, EDIT(m.ext(kPreSharedKey) = {0, 1}), Alert::IllegalParameter, false},
    {"ticket.indexShort", tls13, nothing, ServerHello, EDIT(m.ext(kPreSharedKey) = {0}), Alert::DecodeError, false},
    {"ticket.indexLong", tls13, nothing, ServerHello, EDIT(m.ext(kPreSharedKey) = {0, 0, 0}), Alert::DecodeError, false},
    {"ticket.inRetry", tls13, [](First& f) { f.again.retry = true, f.again.group = 24; }, HelloRetry, EDIT(m.exts.push_back({kPreSharedKey, {0, 0}})), Alert::IllegalParameter, false},
    {"ticket.inExtensions", tls13, nothing, EncryptedExtensions, EDIT(m.exts.push_back({kPreSharedKey, {0, 0}})), Alert::IllegalParameter, false},
    {"ticket.notSaidToBeUsed", tls13, nothing, ServerHello, EDIT(m.drop(kPreSharedKey)), Alert::BadRecordMac, false},
    {"ticket.certificate", tls13, [](First& f) { f.again.flight = {ServerHello, EncryptedExtensions, Certificate, CertificateVerify, Finished}; }, ServerHello, nullptr, Alert::UnexpectedMessage, false},
    {"ticket.request", tls13, [](First& f) { f.again.flight = {ServerHello, EncryptedExtensions, CertificateRequest, Finished}; }, ServerHello, nullptr, Alert::UnexpectedMessage, false},
    {"ticket.answeredWith12", tls13, [](First& f) { gcm12(f.again), forgotten(f), f.again.ticket = false; }, ServerHello, nullptr, kLegal, false},

    {"id", tls12, nothing, ServerHello, nullptr, kLegal, true},
    {"id.noMaster", noMaster, nothing, ServerHello, nullptr, kLegal, true},
    {"id.gcm", gcm12, nothing, ServerHello, nullptr, kLegal, true},
    {"id.tls11", tls11, nothing, ServerHello, nullptr, kLegal, true},
    {"id.tls10", tls10, nothing, ServerHello, nullptr, kLegal, true},
    {"id.forgotten", tls12, forgotten, ServerHello, nullptr, kLegal, false},
    {"id.masterGone", tls12, nothing, ServerHello, EDIT(m.drop(23)), Alert::HandshakeFailure, false},
    {"id.masterNew", noMaster, [](First& f) { f.again.extendedMaster = true; }, ServerHello, nullptr, Alert::HandshakeFailure, false},
    {"id.otherSuite", tls12, nothing, ServerHello, EDIT(m.body[68] = 0x2B), Alert::IllegalParameter, false},
    {"id.otherVersion", tls12, nothing, ServerHello, EDIT(m.body[1] = 2), Alert::IllegalParameter, false},
    {"id.noCcs", tls12, [](First& f) { f.again.flight = {ServerHello, Finished}; }, ServerHello, nullptr, Alert::UnexpectedMessage, false},
    {"id.certificate", tls12, [](First& f) { f.again.flight = {ServerHello, Certificate}; }, ServerHello, nullptr, Alert::UnexpectedMessage, false},
    {"id.finished", tls12, nothing, Finished, EDIT(m.body[11] ^= 1), Alert::DecryptError, false},
    {"id.leftover", tls12, nothing, Finished, EDIT(m.tail = {0, 0, 0, 0}), Alert::UnexpectedMessage, false},
};

// clang-format on

TEST(ScriptedSession, EachResumptionHasItsAnswer) {
    for (const ResumeRow& row : kResumeRows) {
        First first(row.prepare);
        row.change(first);
        if (row.edit) first.again.edits.emplace(row.step, row.edit);
        LaterTalk talk(first, kHour / 2);
        talk.pump();
        EXPECT_EQ(wordOf(talk.verdict()), wordOf(row.expected)) << row.name << talk.logText();
        if (row.expected != kLegal) continue;
        EXPECT_EQ(talk.engine.negotiated().resumed, row.resumed) << row.name;
        EXPECT_EQ(talk.server.resumed, row.resumed) << row.name;
        const bool tickets = row.prepare == tls13;
        EXPECT_EQ(talk.server.binderRight, tickets && row.resumed) << row.name;
    }
}

TEST(ScriptedSession, TicketOfOtherHashIsLeftOutAfterRetry) {
    First first(tls13);
    forgotten(first);
    first.again.suite = 0x1302;
    first.again.retry = true;
    first.again.group = 24;
    LaterTalk talk(first, kHour / 2);
    ASSERT_EQ(talk.pump().verdict(), kLegal) << talk.logText();
    EXPECT_TRUE(talk.server.hellos[0].find(kPreSharedKey));
    EXPECT_FALSE(talk.server.hellos[1].find(kPreSharedKey));
}

TEST(ScriptedSession, TicketCarriesItsAge) {
    First first(tls13);
    LaterTalk talk(first, 1234567);
    talk.pump();
    const auto& hello = talk.server.hellos.at(0);
    EXPECT_EQ(hello.exts.back().type, kPreSharedKey);  // always last
    const Bytes identity = {0, 12, 0, 6, 't', 'i', 'c', 'k', 'e', 't', 0, 0x12, 0xD6, 0x8E};
    const Bytes& body = hello.exts.back().body;
    EXPECT_EQ(Bytes(body.begin(), body.begin() + 14), identity);  // 1234567 + 7
}

// clang-format off
struct OfferRow {
    const char* name;
    void (*prepare)(ServerSetup&);
    void (*change)(First&);
    uint64_t later;
    bool offered;
    const char* words;  // of the log
};

void verified(First& f, uint64_t msLeft) {
    f.settings.session->scope.requireVerify = true;
    f.settings.session->verifiedUntilMs = f.now + msLeft;
}

const OfferRow kOfferRows[] = {
    {"ticket.atOnce", tls13, nothing, 0, true, "Session contains valid info..."},
    {"ticket.beforeItsEnd", tls13, nothing, kHour - 1, true, "Session contains valid info..."},
    {"ticket.atItsEnd", tls13, nothing, kHour, false, "Session ticket is too old."},
    {"ticket.beforeSevenDays", tls13, [](First& f) { f.settings.session->lifetimeSeconds = 1 << 24; }, 7 * kDay - 1, true, "Session contains valid info..."},
    {"ticket.sevenDays", tls13, [](First& f) { f.settings.session->lifetimeSeconds = 1 << 24; }, 7 * kDay, false, "Session ticket is too old."},
    {"ticket.fromTheFuture", tls13, [](First& f) { f.settings.session->receivedAtMs += 1; }, 0, false, "Session ticket arrived after the current time."},
    {"ticket.noSecret", tls13, [](First& f) { f.settings.session->secret.clear(); }, 0, false, "Missing the TLS 1.3 resumption secret..."},
    {"ticket.noTicket", tls13, [](First& f) { f.settings.session->id.clear(); }, 0, false, "Missing the TLS 1.3 session ticket..."},
    {"ticket.verified", tls13, [](First& f) { verified(f, 1); }, 0, true, "Session contains valid info..."},
    {"ticket.verifiedTooLongAgo", tls13, [](First& f) { verified(f, 0); }, 0, false, "The certificate of the session has to be verified again."},
    {"ticket.not13", tls13, [](First& f) { f.settings.versions.highest = Version::Tls12; }, 0, false, ""},
    {"ticket.disabled13", tls13, [](First& f) { f.settings.options.disableTls13 = true; }, 0, false, ""},
    {"ticket.noReuse", tls13, [](First& f) { f.settings.options.reuseSessions = false; }, 0, false, ""},
    {"id.atOnce", tls12, nothing, 0, true, "Session contains valid info..."},
    {"id.beforeOneDay", tls12, nothing, kDay - 1, true, "Session contains valid info..."},
    {"id.oneDay", tls12, nothing, kDay, false, "Session ticket is too old."},
    {"id.fromTheFuture", tls12, [](First& f) { f.settings.session->receivedAtMs += 1; }, 0, false, "Session ticket arrived after the current time."},
    {"id.noSecret", tls12, [](First& f) { f.settings.session->secret.clear(); }, 0, false, "masterSecret is empty."},
    {"id.noId", tls12, [](First& f) { f.settings.session->id.clear(); }, 0, false, "sessionId is empty."},
    {"id.verifiedTooLongAgo", tls12, [](First& f) { verified(f, 0); }, 0, false, "The certificate of the session has to be verified again."},
    {"id.only13", tls12, [](First& f) { f.settings.versions.lowest = Version::Tls13; }, 0, false, ""},
    {"id.noReuse", tls12, [](First& f) { f.settings.options.reuseSessions = false; }, 0, false, ""},
};

// clang-format on

TEST(ScriptedSession, OnlyUsableSessionsAreOffered) {
    for (const OfferRow& row : kOfferRows) {
        First first(row.prepare);
        row.change(first);
        LaterTalk talk(first, row.later);
        talk.pump();
        const auto& hello = talk.server.hellos.at(0);
        const bool offered = row.prepare == tls13 ? hello.find(kPreSharedKey) != nullptr
                                                  : hello.sessionId == first.again.sessionId;
        EXPECT_EQ(offered, row.offered) << row.name << talk.logText();
        EXPECT_NE(talk.logText().find(row.words), std::string::npos) << row.name << talk.logText();
    }
}

TEST(ScriptedSession, ResumedSessionKeepsItsAge) {
    First first(tls12);
    LaterTalk talk(first, 20 * kHour);
    ASSERT_EQ(talk.pump().verdict(), kLegal);
    const std::optional<TlsSession> kept = talk.engine.takeSession();
    ASSERT_TRUE(kept);
    EXPECT_EQ(kept->receivedAtMs, first.now - 20 * kHour);
}

// The next hello has to stay within one record.
TEST(ScriptedSession, TicketsOfNoLifetimeAndLongOnesAreDropped) {
    const struct {
        uint8_t lifetime;
        size_t size;
        bool kept;
    } rows[] = {{0, 6, false}, {60, 6, true}, {60, 14336, true}, {60, 14337, false}};
    for (const auto& row : rows) {
        First first(tls13);
        forgotten(first);
        first.again.edits.emplace(NewSessionTicket, [&](Item& m, Items&) {
            m.body = {0, 0, 0, row.lifetime, 0, 0, 0, 7, 1, 1};
            m.body.push_back(static_cast<uint8_t>(row.size >> 8));
            m.body.push_back(static_cast<uint8_t>(row.size));
            m.body.resize(m.body.size() + row.size);
        });
        Talk talk(first.again);
        ASSERT_EQ(talk.pump().verdict(), kLegal) << talk.logText();
        first.settings.session = talk.engine.takeSession();
        ASSERT_EQ(first.settings.session.has_value(), row.kept) << row.size;
        if (!row.kept) continue;
        LaterTalk later(first, 0);
        EXPECT_LE(later.engine.output().size(), kRecordHeaderSize + kMaxPlaintext);
    }
}

// It stands for no session, so a server that echoes it in TLS 1.2 resumes nothing.
TEST(ScriptedSession, CompatibilitySessionIdMayNotComeBackIn12) {
    for (const bool withTicket : {false, true}) {
        First first(tls13);
        ServerSetup setup;
        gcm12(setup);
        TlsSettings settings = first.settings;
        if (!withTicket) settings.session.reset();
        Talk* running = nullptr;
        setup.edits.emplace(ServerHello, [&](Item& m, Items&) {
            const Bytes& sent = running->server.hellos.back().sessionId;
            ASSERT_EQ(sent.size(), 32u);
            std::copy(sent.begin(), sent.end(), m.body.begin() + 35);
        });
        Talk talk(setup, settings);
        running = &talk;
        EXPECT_EQ(talk.pump().verdict(), Alert::IllegalParameter);
    }
}

TEST(ScriptedSession, RenegotiationOfAResumedSessionShowsTheSameCertificate) {
    for (const bool same : {true, false}) {
        First first(tls12);
        if (!same) {
            first.again.editRound = 2;
            first.again.edits.emplace(Certificate, EDIT(m.body.back() ^= 1));
        }
        LaterTalk talk(first, 0);
        ASSERT_EQ(talk.pump().verdict(), kLegal);
        ASSERT_TRUE(talk.engine.negotiated().resumed);
        talk.server.emit(HelloRequest);
        EXPECT_EQ(talk.pump().verdict(), same ? kLegal : Alert::BadCertificate) << talk.logText();
    }
}

// ---- tolerated because deployed servers do it

TEST(ToleratedServers, EmptyRecordBeforeEachCbcRecord) {
    for (void (*prepare)(ServerSetup&) : {tls12, tls11, tls10}) {
        ServerSetup setup;
        prepare(setup);
        setup.emptyRecords = true;
        Talk talk(setup);
        EXPECT_EQ(talk.pump().verdict(), kLegal);
        const std::string text(500000, 'y');
        talk.engine.input().clear();
        talk.server.send(23, {reinterpret_cast<const uint8_t*>(text.data()), text.size()});
        talk.pump();
        EXPECT_EQ(tv::test::textOf(talk.engine.input().bytes()), text);
    }
}

TEST(ToleratedServers, NoRenegotiationInfoButThenNoRenegotiation) {
    ServerSetup setup;
    gcm12(setup);
    setup.secureRenegotiation = false;
    Talk talk(setup);
    ASSERT_EQ(talk.pump().verdict(), kLegal);
    talk.server.emit(HelloRequest);
    talk.pump();
    EXPECT_EQ(talk.server.alerts, std::vector<int>{100});
    EXPECT_EQ(talk.server.hellos.size(), 1u);
    EXPECT_TRUE(talk.dataFlows());
}

Bytes der(uint8_t tag, std::initializer_list<View> parts) {
    const Bytes content = joined(parts);
    Bytes head{tag, static_cast<uint8_t>(content.size())};
    if (content.size() > 127) head = {tag, 0x81, static_cast<uint8_t>(content.size())};
    return joined({head, content});
}

// A negative serial number, unreadable dates and names, an unknown critical extension, no
// signature: nothing of it is looked at where nothing is verified.
TEST(ToleratedServers, OddCertificatesWhereNothingIsVerified) {
    uint8_t* key = nullptr;
    const int size = i2d_PUBKEY(keyOf("P-256"), &key);
    const Bytes info(key, key + size);
    OPENSSL_free(key);
    const Bytes extension = der(0x30, {Bytes{6, 2, 42, 7, 1, 1, 0xFF, 4, 1, 0}});
    const Bytes tbs = der(0x30, {Bytes{0xA0, 3, 2, 1, 2}, Bytes{2, 2, 0xFF, 0x80}, Bytes{0x30, 0},
                                 Bytes{0x30, 3, 0x0C, 1, 0xFF}, Bytes{0x30, 4, 0x17, 2, 'n', 'o'},
                                 Bytes{0x30, 0}, info, der(0xA3, {der(0x30, {extension})})});
    for (const bool new13 : {false, true}) {
        ServerSetup setup;
        if (!new13) gcm12(setup);
        setup.certificate = der(0x30, {tbs, Bytes{0x30, 0}, Bytes{3, 1, 0}});
        EXPECT_EQ(Talk(setup).pump().verdict(), kLegal) << new13;
    }
}

}  // namespace
}  // namespace tv::tls::test
