// The hellos of a handshake: what is offered, what the server chose, and whether it may be chosen.
// The flows behind them stand in ClientHandshake12.cpp and ClientHandshake13.cpp.
#include "net/tls/ClientHandshake.h"

#include <algorithm>

#include "base/Hex.h"
#include "net/tls/ClientHandshake12.h"
#include "net/tls/ClientHandshake13.h"
#include "net/tls/KeySchedule13.h"

namespace tv::tls {
namespace {

bool shareOffered(const Handshake& h, Group group) {
    return std::any_of(h.shares.begin(), h.shares.end(),
                       [&](const auto& share) { return share->group() == group; });
}

// Puts the extensions into the order of an earlier hello; new ones keep their place at the end.
void sortLike(std::vector<HelloExtension>& extensions, const std::vector<ExtensionType>& order) {
    const auto rank = [&](const HelloExtension& e) {
        if (e.type == ExtensionType::PreSharedKey) return order.size() + 1;
        return static_cast<size_t>(std::find(order.begin(), order.end(), e.type) - order.begin());
    };
    std::stable_sort(extensions.begin(), extensions.end(),
                     [&](const auto& a, const auto& b) { return rank(a) < rank(b); });
}

}  // namespace

ClientHandshake::ClientHandshake(const TlsSettings& settings, TlsEnvironment& environment,
                                 RecordLayer& records)
    : settings_(settings), shared_{settings, environment, records, {}, {}, {},
                                   false,    false,       {},      {}, {}} {}

Cause ClientHandshake::start(LogBase& log, const Negotiated* established) {
    const LogContextExitor context(log, "initClientHello");
    established_ = established;
    const Cause failure = prepareHello(log, established);
    return failure == Cause::None ? sendHello(log) : failure;
}

Cause ClientHandshake::prepareHello(LogBase& log, const Negotiated* established) {
    offered_ = settings_.versions;
    if (settings_.options.disableTls13) {
        log.logInfo("TLS 1.3 is explicitly disabled...");
        offered_.highest = std::min(offered_.highest, Version::Tls12);
    }
    if (established) offered_ = {established->version, established->version};
    if (offered_.empty()) return Cause::TlsNoUsableVersion;
    offersTls13_ = offered_.highest >= Version::Tls13;

    ClientHello& hello = shared_.hello;
    shared_.result.version = offered_.highest;
    hello.legacyVersion = std::min(offered_.highest, Version::Tls12);
    hello.fallback = settings_.fallback && !established;
    if (!shared_.environment.random(hello.random)) return Cause::TlsRandomFailed;
    // RFC 7507, 4: what resumes a session is no fallback, and the other way round.
    if (!established && !hello.fallback) offerSession(log);
    if (offersTls13_) {
        if (hello.sessionId.empty()) {
            log.logVerbose("MiddleBoxCompatibilityMode");
            // RFC 8446, D.4: the longest a session identifier can be, so that it looks like one.
            hello.sessionId.resize(32);
            if (!shared_.environment.random(hello.sessionId)) return Cause::TlsRandomFailed;
        }
        if (!addShare(log, Group::X25519) || !addShare(log, Group::Secp256r1) ||
            (settings_.options.brainpool && !addShare(log, Group::BrainpoolP256r1))) {
            return Cause::TlsRandomFailed;
        }
    }
    const SuiteFilter filter{offered_.lowest,         offered_.highest,
                             settings_.options.gcm,   settings_.options.dhe,
                             settings_.options.ecdhe, settings_.options.oldSuites,
                             settings_.verifiesServer};
    hello.suites =
        offeredSuites(filter, [this](uint32_t below) { return shared_.environment.draw(below); });
    if (shared_.sessionOffered && settings_.session->isTls13()) {
        log.logVerbose("Using same cipher suite ID for TLS 1.3 session resumption.");
        const CipherSuite* suite = findCipherSuite(settings_.session->suite);
        // First: a server that takes the client's order would drop the session for a suite with
        // another hash.
        std::erase(hello.suites, suite);
        hello.suites.insert(hello.suites.begin(), suite);
    }
    return Cause::None;
}

// A session is offered if this hello could end in its version and suite.
void ClientHandshake::offerSession(LogBase& log) {
    if (!settings_.session || !settings_.options.reuseSessions) return;
    const TlsSession& session = *settings_.session;
    const CipherSuite* suite = findCipherSuite(session.suite);
    if (!suite || !offered_.contains(session.version)) return;
    log.logInfo("Attempting to re-use SSL/TLS session.");
    if (!sessionIsUsable(log, session, shared_.environment.wallClockMs())) return;
    shared_.sessionOffered = true;
    if (!session.isTls13()) shared_.hello.sessionId = session.id;
}

bool ClientHandshake::addShare(LogBase& log, Group group) {
    log.logVerbose("Generating " + std::string(groupName(group)) + " key share...");
    std::unique_ptr<KeyShare> share = makeKeyShare(group, shared_.randomSource());
    if (!share) return false;
    shared_.shares.push_back(std::move(share));
    return true;
}

HelloParameters ClientHandshake::parameters() const {
    HelloParameters p;
    p.versions = offered_;
    p.options = settings_.options;
    p.serverName = settings_.serverName;
    p.moreCurves = settings_.moreCurves;
    p.cookie = cookie_;
    if (established_) p.renegotiationVerify = established_->renegotiation.clientVerify;
    if (shared_.sessionOffered && settings_.session->isTls13()) {
        const TlsSession& session = *settings_.session;
        p.psk.ticket = session.id;
        p.psk.obfuscatedAge = obfuscatedTicketAge(session, shared_.environment.wallClockMs());
        p.psk.binderSize = crypto::digestSize(findCipherSuite(session.suite)->hash);
    }
    return p;
}

Cause ClientHandshake::sendHello(LogBase& log) {
    HelloParameters p = parameters();
    std::vector<OfferedShare> shares;
    for (const auto& share : shared_.shares) {
        shares.push_back({share->group(), share->publicKey()});
    }
    p.shares = shares;
    ClientHello& hello = shared_.hello;
    hello.extensions = helloExtensions(p);
    if (!hello.fits()) return Cause::TlsHelloTooLong;
    if (!extensionOrder_.empty()) {
        sortLike(hello.extensions, extensionOrder_);
    } else if (settings_.options.shuffleExtensions) {
        shuffleExtensions(hello.extensions,
                          [this](uint32_t below) { return shared_.environment.draw(below); });
    }
    extensionOrder_.clear();
    for (const HelloExtension& e : hello.extensions) {
        extensionOrder_.push_back(e.type);
    }
    logHello(log);
    std::vector<uint8_t> message = hello.encode();
    if (p.psk.binderSize != 0) fillBinder(message);
    return shared_.send(message) ? Cause::None : Cause::OutOfMemory;
}

// The binder covers the transcript and this hello up to the list of binders (RFC 8446, 4.2.11.2).
void ClientHandshake::fillBinder(std::vector<uint8_t>& message) const {
    const TlsSession& session = *settings_.session;
    const crypto::HashId hash = findCipherSuite(session.suite)->hash;
    const size_t size = crypto::digestSize(hash);
    const std::span<const uint8_t> truncated(message.data(),
                                             message.size() - size - kBinderListOverhead);
    const EarlyStage13 early(hash, session.secret.bytes());
    const std::vector<uint8_t> binder = finishedMac13(hash, early.resumptionBinder().bytes(),
                                                      shared_.transcript.hashWith(hash, truncated));
    std::copy(binder.begin(), binder.end(), message.end() - static_cast<std::ptrdiff_t>(size));
}

void ClientHandshake::logHello(LogBase& log) const {
    const ClientHello& hello = shared_.hello;
    const uint16_t version = static_cast<uint16_t>(hello.legacyVersion);
    if (!log.isVerbose()) return;
    const LogContextExitor context(log, "clientHello_buildMessage");
    log.logDataLong("majorVersion", version >> 8);
    log.logDataLong("minorVersion", version & 0xFF);
    log.logDataHex("clientRandom", hello.random);
    log.logDataLong("sessionIdSize", static_cast<int64_t>(hello.sessionId.size()));
    for (const CipherSuite* suite : hello.suites) {
        log.logData("cipherSuite", suite->name);
    }
    if (hello.fallback) log.logData("cipherSuite", "TLS_FALLBACK_SCSV");
    log.logDataLong("numCipherSuites", static_cast<int64_t>(hello.suites.size()));
    log.logDataLong("numCompressionMethods", 1);
    if (hello.offers(ExtensionType::ServerName)) log.logData("SNI_hostname", settings_.serverName);
}

Cause ClientHandshake::onMessage(LogBase& log, const HandshakeMessage& message, bool atBoundary) {
    if (flow_) {
        if (!flow_->next().allows(message.type)) return Cause::TlsUnexpectedMessage;
        return flow_->onMessage(log, message, atBoundary);
    }
    if (message.type == HandshakeType::ServerHello) return onServerHello(log, message, atBoundary);
    return Cause::TlsUnexpectedMessage;
}

Cause ClientHandshake::onChangeCipherSpec() {
    if (!flow_ || !flow_->next().allowsChangeCipherSpec()) return Cause::TlsUnexpectedCcs;
    readKeysChanged_ = true;
    return flow_->onChangeCipherSpec();
}

Cause ClientHandshake::onServerHello(LogBase& log, const HandshakeMessage& message,
                                     bool atBoundary) {
    const LogContextExitor context(log, "processServerHello");
    ServerHello reply;
    int tooShort = 0;
    Cause failure = parseServerHello(message.body, shared_.hello, reply, tooShort);
    if (tooShort != 0) {
        log.logError("ServerHello too short (" + std::to_string(tooShort) + ")");
    }
    if (failure == Cause::None) failure = judgeVersion(log, reply);
    if (failure == Cause::None) failure = judgeSuite(reply);
    if (failure != Cause::None) return failure;
    log.logData("negotiatedVersion", versionName(reply.version));
    log.logData("negotiatedCipherSuite", findCipherSuite(reply.suite)->name);
    if (reply.isRetry) return onHelloRetryRequest(log, reply, message, atBoundary);
    return startFlow(log, reply, message, atBoundary);
}

// RFC 8446, 4.1.3 and 4.2.1: TLS 1.3 is chosen by supported_versions alone and nothing else is.
Cause ClientHandshake::judgeVersion(LogBase& log, const ServerHello& reply) const {
    const bool byExtension = reply.extensions.selectedVersion.has_value();
    if (reply.isRetry && reply.version != Version::Tls13) return Cause::TlsIllegalParameter;
    if (byExtension && (reply.version != Version::Tls13 || reply.legacyVersion != Version::Tls12)) {
        return Cause::TlsIllegalParameter;
    }
    if (!byExtension && reply.version > Version::Tls12) return Cause::TlsVersionNotOffered;
    if (!offered_.contains(reply.version)) return Cause::TlsVersionNotOffered;

    const DowngradeMark mark = downgradeMark(reply.random);
    if (mark == DowngradeMark::None || byExtension) return Cause::None;
    if (mark == DowngradeMark::ToTls11OrBelow) {
        log.logInfo("TLS 1.3 server is negotiating TLS 1.1 or below...");
    } else {
        log.logInfo("TLS 1.3 server is negotiating TLS 1.2...");
    }
    const bool lowered =
        offersTls13_ || shared_.hello.fallback ||
        (mark == DowngradeMark::ToTls11OrBelow && offered_.highest >= Version::Tls12);
    return lowered ? Cause::TlsDowngrade : Cause::None;
}

Cause ClientHandshake::judgeSuite(const ServerHello& reply) const {
    const CipherSuite* suite = findCipherSuite(reply.suite);
    if (!suite || !shared_.hello.offersSuite(suite->id)) return Cause::TlsSuiteNotOffered;
    if (suite->isTls13() != (reply.version == Version::Tls13)) return Cause::TlsSuiteNotOffered;
    if (suite->minVersion > reply.version) return Cause::TlsSuiteNotOffered;
    if (retrySuite_ && retrySuite_ != suite) return Cause::TlsIllegalParameter;
    if (reply.version == Version::Tls13 &&
        !std::equal(reply.sessionId.begin(), reply.sessionId.end(), shared_.hello.sessionId.begin(),
                    shared_.hello.sessionId.end())) {
        return Cause::TlsIllegalParameter;
    }
    return Cause::None;
}

Cause ClientHandshake::onHelloRetryRequest(LogBase& log, const ServerHello& reply,
                                           const HandshakeMessage& message, bool atBoundary) {
    log.logInfo("Received a HelloRetryRequest...");
    if (retrySuite_) return Cause::TlsUnexpectedMessage;  // RFC 8446, 4.1.4: at most one
    if (!atBoundary) return Cause::TlsLeftoverAtKeyChange;
    retrySuite_ = findCipherSuite(reply.suite);
    const ServerExtensions& answer = reply.extensions;
    if (!answer.hasKeyShare && !answer.cookie) return Cause::TlsHelloRetryUnchanged;

    if (answer.hasKeyShare) {
        const Group group = answer.keyShareGroup;
        log.logData("serverRequestedKeyShareGroup", groupName(group));
        const std::vector<Group> groups = offeredGroups(parameters());
        if (std::find(groups.begin(), groups.end(), group) == groups.end() ||
            shareOffered(shared_, group)) {
            return Cause::TlsGroupNotOffered;
        }
        shared_.shares.clear();
        if (!addShare(log, group)) return Cause::TlsRandomFailed;
    }
    if (answer.cookie) cookie_.assign(answer.cookie->begin(), answer.cookie->end());
    // A ticket under another hash can no longer be used (RFC 8446, 4.1.4).
    if (shared_.sessionOffered && settings_.session->isTls13() &&
        findCipherSuite(settings_.session->suite)->hash != retrySuite_->hash) {
        shared_.sessionOffered = false;
    }
    log.logInfo("RestartHandshakeHash");
    shared_.transcript.restartForRetry(retrySuite_->hash);
    shared_.transcript.add(message.whole);
    shared_.records.setVersion(Version::Tls12);  // header of all records from here on
    log.logDataBool("bIsAfterHelloRetryRequest", true);
    return shared_.sendCompatibilityCcs() ? sendHello(log) : Cause::OutOfMemory;
}

Cause ClientHandshake::startFlow(LogBase& log, const ServerHello& reply,
                                 const HandshakeMessage& message, bool atBoundary) {
    shared_.result.version = reply.version;
    shared_.result.suite = findCipherSuite(reply.suite);
    shared_.serverRandom.assign(reply.random.begin(), reply.random.end());
    shared_.records.setVersion(reply.version);
    shared_.transcript.add(message.whole);
    shared_.transcript.settle(reply.version, shared_.result.suite->hash);
    if (reply.version == Version::Tls13) {
        if (!atBoundary) return Cause::TlsLeftoverAtKeyChange;
        auto flow = std::make_unique<ClientHandshake13>(shared_);
        const Cause failure = flow->begin(log, reply);
        flow_ = std::move(flow);
        return failure;
    }
    auto flow = std::make_unique<ClientHandshake12>(shared_, established_);
    const Cause failure = flow->begin(log, reply);
    flow_ = std::move(flow);
    return failure;
}

}  // namespace tv::tls
