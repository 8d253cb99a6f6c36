// Connects to TLS servers of others through Socket2 and says what came of it: each line of standard
// input is one job, each line of standard output its result in JSON.
//
// A job is a list of name=value, separated by tabs:
//   port        on 127.0.0.1
//   host        given to connect2 in place of 127.0.0.1
//   policy      the version policy; options: keywords; morecurves=1: two more brainpool curves
//   slot        jobs with the same word share the place where a session waits for the next connect
//   anchors     PEM file: the server is verified by it; "system": by the system's anchors
//   later       seconds by which the clock is ahead
//   talk        echo, rev (each line comes back reversed), http (one request, the answer is read to
//               its end), words (each line that comes is sent back until "end"); none by default
//   bytes       how many to send and receive
//   before      a line that the server takes for a command; sent before the echo
//   log=1       the log comes with a success, too
//   list=1      no connection: the suites that this client offers
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <map>
#include <memory>
#include <string>

#include "log/tvLogger.h"
#include "net/Socket2.h"
#include "net/stream/SChannelTolvane.h"
#include "net/tls/CipherSuites.h"
#include "net/tls/KeyShare.h"
#include "net/tls/TlsProtocol.h"
#include "platform/SysClock.h"
#include "tests/probes/JsonText.h"

namespace tv {
namespace {

using test::quoted;

constexpr uint32_t kIdleMs = 20000;
constexpr size_t kLine = 8000;
constexpr size_t kBurst = 16 * kLine;  // sent before the answers are read

using Job = std::map<std::string, std::string>;

std::span<const uint8_t> bytesFrom(const std::string& text) {
    return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

// The system's, but ahead of it.
class LaterClock final : public plat::SysClock {
public:
    LaterClock() { plat::replaceSysClock(this); }
    ~LaterClock() override { plat::replaceSysClock(nullptr); }
    uint64_t monotonicNs() override { return real_.monotonicNs(); }
    plat::CivilTime localTime() override { return real_.localTime(); }
    uint64_t fileTimeUtc() override { return real_.fileTimeUtc() + seconds * 10000000; }
    void sleepMs(uint32_t ms) override { real_.sleepMs(ms); }

    uint64_t seconds = 0;

private:
    plat::SysClock& real_ = plat::sysClock();
};

class Probe {
public:
    std::string run(const Job& job);

private:
    std::string value(const char* name) const {
        const auto found = job_->find(name);
        return found == job_->end() ? std::string() : found->second;
    }
    bool connect(Socket2& socket);
    bool talk(Socket2& socket);
    bool echo(Socket2& socket, bool reversed);
    bool request(Socket2& socket);
    bool words(Socket2& socket);
    bool send(Socket2& socket, const std::string& text) {
        return !socket.sendBytes(call_, bytesFrom(text), kIdleMs);
    }
    bool wrong(const char* text) {
        log_.logError(text);
        return false;
    }
    std::string report(bool success, const Socket2& socket);

    const Job* job_ = nullptr;
    std::map<std::string, std::shared_ptr<TlsSessionSlot>> slots_;
    LaterClock clock_;
    _tvLogger log_;
    CallContext call_{log_};
    Cause reason_ = Cause::None;
    size_t received_ = 0;
};

std::string offered() {
    std::string out;
    const auto unshuffled = [](uint32_t) { return 0u; };
    for (const tls::CipherSuite* suite : tls::offeredSuites({}, unshuffled)) {
        out += out.empty() ? "" : ", ";
        out += "{\"id\": " + std::to_string(suite->id) + ", \"name\": \"" +
               std::string(suite->name) + "\", \"oldest\": \"" +
               std::string(tls::versionName(suite->minVersion)) + "\"}";
    }
    return "{\"suites\": [" + out + "]}";
}

std::string Probe::run(const Job& job) {
    job_ = &job;
    if (!value("list").empty()) return offered();
    reason_ = Cause::None;
    received_ = 0;
    clock_.seconds = std::strtoull(value("later").c_str(), nullptr, 10);
    log_.setVerbose(true);
    log_.setOptions(value("options"));
    log_.clearLog();
    Socket2 socket;
    const bool success = connect(socket) && talk(socket);
    std::string result = report(success, socket);
    socket.close(call_, !success, kIdleMs);
    return result;
}

bool Probe::connect(Socket2& socket) {
    TlsChannelSettings& tls = socket.tlsSettings();
    tls.tlsProtocol = value("policy");
    tls.moreCurves = !value("morecurves").empty();
    tls.requireSslCertVerify = !value("anchors").empty();
    if (value("anchors") != "system") tls.trustAnchorsFile = value("anchors");
    if (!value("slot").empty()) {
        auto& slot = slots_[value("slot")];
        if (!slot) slot = std::make_shared<TlsSessionSlot>();
        tls.sessions = slot;
    }
    socket.setConnectTimeoutMs(kIdleMs);
    socket.setTcpNoDelay(log_, true);
    const std::string host = value("host").empty() ? "127.0.0.1" : value("host");
    const Failure failure = socket.connect2(call_, host, std::atoi(value("port").c_str()), true);
    reason_ = failure.cause();
    return !failure;
}

bool Probe::talk(Socket2& socket) {
    const std::string how = value("talk");
    if (how == "echo" || how == "rev") return echo(socket, how == "rev");
    if (how == "http") return request(socket);
    if (how == "words") return words(socket);
    return how.empty() || wrong("no such way to talk");
}

// Lines that differ from each other, and their answers.
bool Probe::echo(Socket2& socket, bool reversed) {
    const size_t wanted = static_cast<size_t>(std::atoll(value("bytes").c_str()));
    const std::string before = value("before");
    DataBuffer back;
    if (!before.empty()) {
        // The command has been carried out, or begun, once the line behind it comes back.
        if (!send(socket, before + '\n') || !send(socket, "ping\n")) return false;
        if (socket.receiveUntilMatch(call_, back, "ping\n", 1000, kIdleMs)) return false;
    }
    uint32_t state = 1;
    for (size_t sent = 0; sent < wanted;) {
        std::string out, expected;
        while (out.size() < kBurst && sent + out.size() < wanted) {
            std::string line(std::min(kLine, wanted - sent - out.size()) - 1, ' ');
            for (char& c : line) {
                state = state * 1664525 + 1013904223;
                c = static_cast<char>('a' + (state >> 24) % 26);
            }
            out += line + '\n';
            if (reversed) std::reverse(line.begin(), line.end());
            expected += line + '\n';
        }
        if (!send(socket, out)) return false;
        sent += out.size();
        back.clear();
        while (back.size() < expected.size()) {
            if (socket.receiveBytes(call_, back, kIdleMs)) return false;
        }
        if (back.text() != expected) return wrong("what came back is not what was sent");
        received_ += back.size();
    }
    return true;
}

bool Probe::request(Socket2& socket) {
    if (!send(socket, "GET / HTTP/1.0\r\n\r\n")) return false;
    DataBuffer back;
    while (!socket.receiveBytes(call_, back, kIdleMs)) {
    }
    received_ = back.size();
    return back.text().substr(0, 5) == "HTTP/" || wrong("no answer to the request");
}

bool Probe::words(Socket2& socket) {
    if (!send(socket, "ready\n")) return false;
    DataBuffer line;
    do {
        line.clear();
        if (socket.receiveUntilMatch(call_, line, "\n", 1 << 21, kIdleMs)) return false;
        received_ += line.size();
        if (!send(socket, std::string(line.text()))) return false;
    } while (line.text() != "end\n");
    return true;
}

std::string Probe::report(bool success, const Socket2& socket) {
    std::string out = std::string("{\"ok\": ") + (success ? "true" : "false");
    if (const tls::Negotiated* facts = socket.negotiated()) {
        out += ", \"version\": " + quoted(tls::versionName(facts->version));
        out += ", \"suite\": " + quoted(facts->suite ? facts->suite->name : "");
        out += ", \"group\": " + quoted(tls::groupName(facts->group));
        out += std::string(", \"resumed\": ") + (facts->resumed ? "true" : "false");
    }
    out += ", \"received\": " + std::to_string(received_);
    out += ", \"reason\": " + std::to_string(static_cast<int>(reason_));
    if (!success || !value("log").empty()) {
        std::string text;
        log_.getText(text);
        out += ", \"log\": " + quoted(text);
    }
    return out + "}";
}

}  // namespace
}  // namespace tv

int main() {
    tv::Probe probe;
    std::string line;
    while (std::getline(std::cin, line)) {
        tv::Job job;
        while (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        for (size_t at = 0; at < line.size();) {
            const size_t end = std::min(line.find('\t', at), line.size());
            const std::string pair = line.substr(at, end - at);
            const size_t equals = std::min(pair.find('='), pair.size());
            job[pair.substr(0, equals)] = pair.substr(std::min(equals + 1, pair.size()));
            at = end + 1;
        }
        std::cout << probe.run(job) << std::endl;
    }
    return 0;
}
