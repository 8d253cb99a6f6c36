// What the tests of name resolution share: a fake network with a state of its own, and name servers
// as functions.
#pragma once

#include <cstdio>
#include <fstream>

#include "base/Failure.h"
#include "net/resolve/ResolverState.h"
#include "net/stream/CallContext.h"
#include "tests/fixtures/DnsMessages.h"
#include "tests/unit/net/NetTestKit.h"

namespace tv::test {

// What a name server does with its nth datagram.
using DnsAnswers = std::function<std::vector<FakeDatagram>(std::string_view query, size_t number)>;

inline DnsAnswers answersWith(std::vector<std::string> records, uint16_t flags = dnsmsg::kOkay) {
    return [=](std::string_view query, size_t) -> std::vector<FakeDatagram> {
        return {{dnsmsg::reply(query, records, flags)}};
    };
}
inline DnsAnswers isAt(const std::string& ip, uint32_t ttl = 300) {
    return answersWith({dnsmsg::a(ip, dnsmsg::kAsked, ttl)});
}
inline std::vector<FakeDatagram> silence(std::string_view, size_t) {
    return {};
}

// A name server over TCP: one message, whatever the pieces it comes in.
class DnsPeer final : public FakePeer {
public:
    using Reply = std::function<std::string(std::string_view query)>;  // without the length
    explicit DnsPeer(Reply reply, Ending ending = Ending::None)
        : reply_(std::move(reply)), ending_(ending) {}

    void onBytes(std::string_view bytes, std::string& out) override {
        got_ += bytes;
        if (got_.size() < 2) return;
        const size_t size = static_cast<uint8_t>(got_[0]) * 256U + static_cast<uint8_t>(got_[1]);
        if (got_.size() != 2 + size) return;
        const std::string message = reply_(std::string_view(got_).substr(2));
        if (!message.empty()) {
            out = dnsmsg::number(static_cast<uint32_t>(message.size()), 2) + message;
        }
        done_ = true;
    }
    Ending ending() const override { return done_ ? ending_ : Ending::None; }

private:
    Reply reply_;
    Ending ending_;
    std::string got_;
    bool done_ = false;
};

class DnsWorld : public testing::Test {
protected:
    DnsWorld() { replaceResolverState(&state); }
    ~DnsWorld() override {
        replaceResolverState(nullptr);
        for (const std::string& path : files_)
            std::remove(path.c_str());
    }

    static std::string textOf(const std::vector<plat::IpAddress>& addresses) {
        std::string text;
        for (const plat::IpAddress& address : addresses) {
            text += (text.empty() ? "" : " ") + plat::toText(address);
        }
        return text;
    }
    // "place@ms ..." of every datagram since the start, the port left out where it is 53.
    std::string sentText() const {
        std::string text;
        for (const FakeUdp::Sent& sent : net.udp.sent) {
            const std::string place = sent.place.substr(0, sent.place.rfind(":53"));
            text += (text.empty() ? "" : " ") + place + "@" + std::to_string(sent.atMs - startMs);
        }
        return text;
    }
    uint64_t elapsedMs() const { return clock.nowNs / 1000000 - startMs; }
    void begin() {
        log.clearLog();
        std::construct_at(&call, log);
        call.monitor = &monitor;
        net.udp.sent.clear();
        startMs = clock.nowNs / 1000000;
    }
    void expectTexts(const char* what, const std::vector<const char*>& texts) {
        const std::string all = tv::test::textOf(log);
        for (const char* text : texts) {
            EXPECT_NE(all.find(text), std::string::npos) << what << ": no \"" << text << "\" in\n"
                                                         << all;
        }
    }

    // A file with this text, gone at the end of the test.
    std::string file(const std::string& name, const std::string& text) {
        const std::string path = testing::TempDir() + "tv_dns_" + name;
        std::ofstream(path, std::ios::binary) << text;
        files_.push_back(path);
        return path;
    }

    FakeClock clock;
    FakeNet net{clock};
    ResolverState state;
    _tvLogger log;
    Recorded recorded{log};
    Monitor monitor;
    CallContext call{log};
    Failure failure;  // of the last operation
    uint64_t startMs = 1000;

private:
    std::vector<std::string> files_;
};

}  // namespace tv::test
