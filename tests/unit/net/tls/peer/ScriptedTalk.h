// One conversation between the engine and the scripted server, and what became of it.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>

#include "log/tvLogger.h"
#include "net/tls/CauseAlert.h"
#include "net/tls/TlsProtocol.h"
#include "tests/fixtures/Record.h"
#include "tests/fixtures/TestBytes.h"
#include "tests/unit/net/tls/TestEnvironment.h"
#include "tests/unit/net/tls/peer/ScriptedTlsServer.h"

namespace tv::tls::test {

// What a table expects: the one alert that the client sends, or one of these.
constexpr Alert kLegal = static_cast<Alert>(255);       // data flows both ways
constexpr Alert kSilence = static_cast<Alert>(254);     // not established, and nothing said
constexpr Alert kServerEnds = static_cast<Alert>(253);  // the server finds the client's keys wrong

inline std::string wordOf(Alert alert) {
    if (alert == kLegal) return "legal";
    if (alert == kSilence) return "silence";
    if (alert == kServerEnds) return "the server ends it";
    return std::to_string(static_cast<int>(alert)) + " " + std::string(alertName(alert));
}

inline TlsSettings namedSettings() {
    TlsSettings settings;
    settings.serverName = "server.test";
    return settings;
}

class Talk {
public:
    explicit Talk(ServerSetup setup, TlsSettings settings = namedSettings())
        : server(std::move(setup)), engine(std::move(settings), environment) {
        engine.start(log);
    }

    // Moves bytes both ways until nothing moves. chunk: how many reach the engine at once; left:
    // how many may still reach it at all.
    Talk& pump(size_t chunk = SIZE_MAX, size_t left = SIZE_MAX) {
        for (;;) {
            const Bytes sent(engine.output().data(),
                             engine.output().data() + engine.output().size());
            engine.output().clear();
            try {
                if (!serverGaveUp) server.receive(sent);
            } catch (const std::runtime_error& e) {
                serverGaveUp = true;
                serverWords = e.what();
            }
            const Bytes all = server.take();
            View bytes = View(all).first(std::min(left, all.size()));
            left -= bytes.size();
            if (bytes.empty() && engine.output().empty()) return *this;
            while (!bytes.empty()) {
                const size_t n = std::min(chunk, bytes.size());
                feed(engine, log, bytes.first(n));
                bytes = bytes.subspan(n);
                delivered += n;
            }
        }
    }

    bool dataFlows() {
        const std::string text(20000, 'x');
        server.received.clear();
        engine.input().clear();
        engine.sendApplicationData(log,
                                   {reinterpret_cast<const uint8_t*>(text.data()), text.size()});
        pump();
        server.send(23, {reinterpret_cast<const uint8_t*>(text.data()), text.size()});
        pump();
        return server.received == text && tv::test::textOf(engine.input().bytes()) == text;
    }

    Alert verdict() {
        if (serverGaveUp) {
            return engine.failure() == Cause::None ? kServerEnds : alertOf(engine.failure());
        }
        if (engine.failure() == Cause::None && engine.isEstablished() && dataFlows() &&
            server.alerts.empty()) {
            return kLegal;
        }
        EXPECT_FALSE(engine.isEstablished());
        if (server.alerts.size() == 1) return static_cast<Alert>(server.alerts[0]);
        EXPECT_TRUE(server.alerts.empty());
        return kSilence;
    }

    std::string logText() {
        std::string text;
        log.getText(text);
        return text + serverWords;
    }

    TestEnvironment environment;
    ScriptedTlsServer server;
    _tvLogger log;
    tv::test::Recorded recorded{log};
    TlsProtocol engine;
    bool serverGaveUp = false;
    std::string serverWords;
    size_t delivered = 0;
};

// ---- edits

#define EDIT(...)             \
    [](Item& m, Items& all) { \
        (void)m;              \
        (void)all;            \
        __VA_ARGS__;          \
    }

inline void put(Item& m, size_t at, std::initializer_list<uint8_t> bytes) {
    std::copy(bytes.begin(), bytes.end(), m.body.begin() + static_cast<std::ptrdiff_t>(at));
}
inline void add(Item& m, uint16_t type, Bytes body = {}) {
    m.exts.push_back({type, std::move(body)});
}
// A server random whose end says that the server could do better.
inline void mark(Item& m, uint8_t last) {
    put(m, 26, {'D', 'O', 'W', 'N', 'G', 'R', 'D', last});
}
// The content of a record of its own; plain: unprotected.
inline Item record(uint8_t type, Bytes body, bool plain = false) {
    Item item;
    item.record = type;
    item.raw = true;
    item.body = std::move(body);
    item.plain = plain;
    return item;
}
inline void before(Items& all, const Item& item, size_t count = 1) {
    all.insert(all.begin(), count, item);
}

// ---- tables

using Prepare = void (*)(ServerSetup&);
using RowEdit = void (*)(Item&, Items&);

// The usual setup changed by prepare, then one message changed by edit.
struct Row {
    const char* name;
    Prepare prepare;
    Step step;
    RowEdit edit;
    Alert expected;
};
void expectRow(const Row& row, const TlsSettings& settings = namedSettings());

// Every byte of a range of one message, flipped under each mask in a connection of its own.
struct FlipRow {
    const char* name;
    Prepare prepare;
    Step step;
    size_t from, to;
    Alert expected;
    Bytes masks = {0x01, 0x80};
};
void expectFlips(const FlipRow& row);

// What the server does once the connection stands.
struct PostRow {
    const char* name;
    void (*act)(ScriptedTlsServer&);
    Alert expected;
};
void expectPost(const PostRow& row, Prepare prepare);

// Every message of a flight cut to each length and made longer by a byte: decode_error, or what
// expected says of the length that was kept.
void expectTruncations(Prepare prepare, const std::vector<Step>& flight,
                       const std::function<Alert(Step, size_t kept, size_t size)>& expected);
// Each message of a flight left out, sent twice, and moved to every other place:
// unexpected_message, but without the optional one all is well, and without the last one nothing
// happens.
void expectOrders(Prepare prepare, const std::vector<Step>& flight, Step optional);
// A message of every type that has or could have a meaning, without a body, before each message:
// unexpected_message, or what expected says; own: the type is that of the message due.
void expectForeign(Prepare prepare, const std::vector<Step>& flight,
                   const std::function<Alert(Step, int type, bool own)>& expected);
// Each byte changed on the way, the server's transcript and signatures being those of the message
// as it was.
void expectNothingBelieved(Prepare prepare, const std::vector<Step>& flight);
// Pieces and records of many sizes make no difference; cut short nothing is established.
void expectPieces(Prepare prepare);
void expectCuts(Prepare prepare);

}  // namespace tv::tls::test
