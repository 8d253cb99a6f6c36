// Takes inner parts of the product to servers of others.
//
//     probe send|tls|resolve|login [NAME=VALUE...]
//
// Each line of standard input is one job: more such words, parted by tabs; those of the command
// line hold for every job. It is answered with one line of JSON. All jobs of a process share what
// the product remembers.
//
// send: through the mail manager. Its properties; keep=1 with the mail manager, and so the
//     connection, of the job before; id=TEXT becomes the subject; bytes=N least size of the body
// tls: a connection to port=N of host=NAME (127.0.0.1)
//     policy=, options=, morecurves=1: the version policy, keywords, two more brainpool curves
//     slot=WORD   jobs with the same word share the place where a session waits for the next
//     anchors=FILE the server is verified by it; "system": by the system's anchors
//     later=N     seconds by which the clock is ahead
//     talk=       echo (lines=N that come back, behind before=LINE, which the server takes for a
//                 command), http (one request), words (each line is sent back until "end")
//     list=1      no connection, but the suites that are offered
// resolve: name=NAME as a connect does; tls=1 (name servers over TLS only), six=1 (the system's
//     resolver, IPv6 first)
// login: by the system's security package at port=N, with user= and password=
#include <algorithm>
#include <concepts>
#include <iostream>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <utility>

#include "log/tvLogger.h"
#include "mail/ClsMailMan.h"
#include "mail/sasl/SaslPackage.h"
#include "mail/smtp/SaslExchange.h"
#include "mail/smtp/SmtpConnImpl.h"
#include "mime/ClsEmail.h"
#include "net/Socket2.h"
#include "net/resolve/NameSource.h"
#include "net/resolve/Resolver.h"
#include "net/stream/SChannelTolvane.h"
#include "net/tls/CipherSuites.h"
#include "net/tls/KeyShare.h"
#include "net/tls/TlsProtocol.h"
#include "platform/SysClock.h"
#include "tests/fixtures/FakeSystem.h"
#include "tests/fixtures/hosts/process_use.h"

namespace tv {
namespace {

constexpr uint32_t kIdleMs = 20000;

// The words of a job, taken one by one, and its answer.
class Job {
public:
    void add(const std::string& word) {
        const size_t sign = std::min(word.find('='), word.size());
        words[word.substr(0, sign)] = word.substr(std::min(sign + 1, word.size()));
    }
    std::string text(const char* name, const char* otherwise = "") {
        const auto word = words.extract(name);
        return word ? word.mapped() : otherwise;
    }
    int number(const char* name) { return std::stoi(text(name, "0")); }
    void say(const char* name, std::integral auto value) { begin(name) << value; }
    void say(const char* name, std::string_view value) {
        begin(name) << '"';
        for (const char c : value)
            c == '\n' ? std::cout << "\\n" : std::cout << (c == '"' || c == '\\' ? "\\" : "") << c;
        std::cout << '"';
    }

    std::map<std::string, std::string> words;  // not taken yet

private:
    std::ostream& begin(const char* name) {
        std::cout << (std::exchange(first_, false) ? "{\"" : ", \"") << name << "\": ";
        return std::cout;
    }
    bool first_ = true;
};

void send(Job& job, std::unique_ptr<ClsMailMan>& mailMan) {
    const bool keep = job.number("keep") != 0;
    if (!keep || !mailMan) mailMan = std::make_unique<ClsMailMan>();
    std::string body;
    for (const size_t size = static_cast<size_t>(job.number("bytes")); body.size() <= size;)
        body += "<p>A line of the body, with a full stop.</p>\n";
    ClsEmail email;
    email.put_FromAddress(XString("anna@example.test"));
    email.put_Subject(XString(job.text("id", "probe")));
    email.SetHtmlBody(XString(body));
    email.AddTo(XString(), XString("bela@example.test"));
    std::erase_if(job.words, [&](const auto& word) {
        return mailMan->setProperty(word.first, XString(word.second));
    });
    const uint64_t start = plat::sysClock().tickMs();
    const bool sent = mailMan->SendEmail(email, nullptr);
    job.say("ms", plat::sysClock().tickMs() - start);
    job.say("sent", sent);
    job.say("status", mailMan->lastSendStatus());
    job.say("transcript", mailMan->SmtpSessionLog().utf8());
    job.say("log", mailMan->lastErrorText().utf8());
    const uint64_t end = plat::sysClock().tickMs();
    if (!keep) mailMan.reset();
    job.say("closeMs", plat::sysClock().tickMs() - end);
    job.say("handles", open_handles());
    job.say("memory", memory_in_use());
}

// The system's, but ahead of it.
class LaterClock final : public test::StandIn<plat::SysClock> {
public:
    explicit LaterClock(plat::SysClock& real = plat::sysClock()) : real_(real) {}
    uint64_t monotonicNs() override { return real_.monotonicNs(); }
    plat::CivilTime localTime() override { return real_.localTime(); }
    uint64_t fileTimeUtc() override { return real_.fileTimeUtc() + seconds * 10000000; }
    void sleepMs(uint32_t ms) override { real_.sleepMs(ms); }

    uint64_t seconds = 0;

private:
    plat::SysClock& real_;
};

bool talk(CallContext& call, Socket2& socket, const std::string& how, int lines,
          const std::string& before) {
    DataBuffer back;
    const auto send = [&](std::string_view text) {
        return !socket.sendBytes(call, {bytesOf(text), text.size()}, kIdleMs);
    };
    const auto readLine = [&] {
        back.clear();
        return !socket.receiveUntilMatch(call, back, "\n", 1 << 21, kIdleMs);
    };
    if (how == "http") {
        if (!send("GET / HTTP/1.0\r\n\r\n")) return false;
        while (!socket.receiveBytes(call, back, kIdleMs)) {
        }
        return back.text().starts_with("HTTP/");
    }
    if (how == "words") {
        bool ok = send("ready\n");
        while (ok && back.text() != "end\n")
            ok = readLine() && send(back.text());
        return ok;
    }
    // The command has been carried out, or begun, once the line behind it comes back.
    if (!before.empty() && !(send(before + "\nping\n") && readLine())) return false;
    // Lines that differ from each other; each reads the same from both ends, as one of the servers
    // turns them around.
    while (lines > 0) {
        std::string out;
        for (int burst = 0; burst < 16 && lines > 0; ++burst, --lines) {
            std::string half(4000, ' ');
            for (size_t i = 0; i < half.size(); ++i)
                half[i] = static_cast<char>('a' + i * (i / 26 + static_cast<size_t>(lines)) % 26);
            out.append(half).append(half.rbegin(), half.rend()) += '\n';
        }
        if (!send(out)) return false;
        for (back.clear(); back.size() < out.size();)
            if (socket.receiveBytes(call, back, kIdleMs)) return false;
        if (back.text() != out) return false;
    }
    return true;
}

using Slots = std::map<std::string, std::shared_ptr<TlsSessionSlot>>;

void connectTls(Job& job, _tvLogger& log, LaterClock& clock, Slots& slots) {
    if (job.number("list")) {
        std::string suites;
        for (const tls::CipherSuite* suite : tls::offeredSuites({}, [](uint32_t) { return 0u; }))
            suites.append(suite->name).append(" ").append(tls::versionName(suite->minVersion)) +=
                " " + std::to_string(suite->id) + "\n";
        return job.say("suites", suites);
    }
    clock.seconds = static_cast<uint64_t>(job.number("later"));
    CallContext call{log};
    log.setVerbose(true);
    log.setOptions(job.text("options"));
    const std::string how = job.text("talk"), before = job.text("before");
    const int lines = job.number("lines");
    Socket2 socket;
    TlsChannelSettings& settings = socket.tlsSettings();
    settings.tlsProtocol = job.text("policy");
    settings.moreCurves = job.number("morecurves");
    const std::string anchors = job.text("anchors"), slot = job.text("slot");
    settings.requireSslCertVerify = !anchors.empty();
    if (anchors != "system") settings.trustAnchorsFile = anchors;
    std::shared_ptr<TlsSessionSlot>& sessions = slots[slot];
    if (!slot.empty() && !sessions) sessions = std::make_shared<TlsSessionSlot>();
    settings.sessions = sessions;
    socket.setConnectTimeoutMs(kIdleMs);
    socket.setTcpNoDelay(log, true);
    const Failure failure =
        socket.connect2(call, job.text("host", "127.0.0.1"), job.number("port"), true);
    const bool ok = !failure && talk(call, socket, how, lines, before);
    job.say("ok", ok);
    if (const tls::Negotiated* facts = socket.negotiated()) {
        job.say("version", tls::versionName(facts->version));
        job.say("suite", facts->suite ? facts->suite->name : "");
        job.say("group", tls::groupName(facts->group));
        job.say("resumed", facts->resumed);
    }
    socket.close(call, !ok, kIdleMs);
}

void resolve(Job& job, _tvLogger& log) {
    CallContext call{log};
    std::vector<plat::IpAddress> found;
    NameSource names;
    std::istringstream servers(job.text("servers"));
    for (std::string server; servers >> server;)
        names.servers.push_back(parseNameServer(server).value());
    if (!names.servers.empty()) call.names = &names;
    const Deadline deadline(kIdleMs);
    const std::string name = job.text("name");
    const uint64_t start = plat::sysClock().tickMs();
    const Failure failure = job.number("six") ? getAddressInfo(call, name, true, deadline, found)
                                              : dnsLookup(call, name, deadline, found);
    job.say("ms", plat::sysClock().tickMs() - start);
    std::string addresses;
    for (const plat::IpAddress& address : found)
        addresses += plat::toText(address) + ' ';
    job.say("ok", !failure);
    job.say("found", addresses);
}

void login(Job& job, _tvLogger& log) {
    SmtpConnImpl connection;
    connection.settings.smtpHost.setUtf8("127.0.0.1");
    connection.settings.smtpPort = job.number("port");
    CallContext call{log};
    SaslPackage package(SaslPackage::Package::Ntlm, XString(job.text("user")),
                        XString(job.text("password")), XString(), XString("127.0.0.1"));
    job.say("ok", !connection.smtpConnect(call) && !runSasl(call, package, connection));
    job.say("transcript", connection.sessionLog().text());
}

}  // namespace
}  // namespace tv

int main(int argc, char** argv) {
    const std::string what = argc > 1 ? argv[1] : "";
    std::unique_ptr<tv::ClsMailMan> mailMan;
    tv::LaterClock clock;
    tv::Slots slots;
    for (std::string line; std::getline(std::cin, line);) {
        tv::Job job;
        for (int i = 2; i < argc; ++i)
            job.add(argv[i]);
        std::istringstream words(line);
        for (std::string word; std::getline(words, word, '\t');)
            job.add(word);
        if (what == "send") tv::send(job, mailMan);
        tv::_tvLogger log;
        if (what == "tls") tv::connectTls(job, log, clock, slots);
        if (what == "resolve") tv::resolve(job, log);
        if (what == "login") tv::login(job, log);
        std::string text;
        log.getText(text);
        if (what != "send") job.say("log", text);
        std::cout << "}" << std::endl;
        for (const auto& [name, value] : job.words) {
            std::cerr << "probe: nobody takes " << name << "=" << value << "\n";
            return 2;
        }
    }
    return 0;
}
