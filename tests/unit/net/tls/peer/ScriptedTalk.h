// One conversation between the engine and the scripted server, and what became of it.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>

#include "log/tvLogger.h"
#include "net/tls/CauseAlert.h"
#include "tests/fixtures/Record.h"
#include "tests/fixtures/TestBytes.h"
#include "tests/unit/net/tls/TestEnvironment.h"
#include "tests/unit/net/tls/peer/ScriptedTlsServer.h"

namespace tv::tls::test {

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
            const View output = engine.output().bytes();
            const Bytes sent(output.begin(), output.end());
            engine.output().clear();
            try {
                if (serverWords.empty()) server.receive(sent);
            } catch (const std::runtime_error& e) {
                serverWords = e.what();
            }
            const Bytes all = server.take();
            View bytes = View(all).first(std::min(left, all.size()));
            left -= bytes.size();
            delivered += bytes.size();
            if (bytes.empty() && engine.output().empty()) return *this;
            while (!bytes.empty()) {
                const size_t n = std::min(chunk, bytes.size());
                feed(engine, log, bytes.first(n));
                bytes = bytes.subspan(n);
            }
        }
    }

    bool dataFlows() {
        const std::string text(20000, 'x');
        server.received.clear();
        engine.input().clear();
        engine.sendApplicationData(log, tv::test::bytesIn(text));
        pump();
        server.send(23, tv::test::bytesIn(text));
        pump();
        return server.received == text && tv::test::textOf(engine.input().bytes()) == text;
    }

    bool stands() {
        const std::string said = verdict();
        return said == "legal" || said == "resumed";
    }

    // "legal" or "resumed" where data flows both ways, or else the words of the one alert that the
    // client sends; "silence": it says nothing; "server ends": it makes what the server refuses.
    std::string verdict() {
        const Cause failure = engine.failure();
        if (!serverWords.empty()) {
            return failure == Cause::None ? "server ends"
                                          : std::string(alertName(alertOf(failure)));
        }
        if (failure == Cause::None && engine.isEstablished() && dataFlows() &&
            server.alerts.empty()) {
            const bool resumed = engine.negotiated().resumed;
            EXPECT_EQ(server.resumed, resumed);
            EXPECT_TRUE(!resumed || server.setup.version < 0x0304 || server.binderRight);
            return resumed ? "resumed" : "legal";
        }
        EXPECT_FALSE(engine.isEstablished());
        if (server.alerts.empty()) return "silence";
        EXPECT_EQ(server.alerts.size(), 1u);
        return std::string(alertName(static_cast<Alert>(server.alerts[0])));
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
    std::string serverWords;  // why it gave up
    size_t delivered = 0;
};

}  // namespace tv::tls::test
