// One conversation between the engine and a server in memory.
#pragma once

#include <gtest/gtest.h>

#include "log/tvLogger.h"
#include "tests/fixtures/Record.h"
#include "tests/fixtures/TestBytes.h"
#include "tests/unit/net/tls/TestEnvironment.h"

namespace tv::tls::test {

inline TlsSettings namedSettings() {
    TlsSettings settings;
    settings.serverName = "server.test";
    return settings;
}

template <class Server>
class Talk {
public:
    template <class From>
    explicit Talk(const From& from, TlsSettings settings = namedSettings())
        : server(from), engine(std::move(settings), environment) {
        engine.start(log);
    }

    // Moves bytes both ways until nothing moves. chunk: how many reach the engine at once; left:
    // how many may still reach it at all.
    Talk& pump(size_t chunk = SIZE_MAX, size_t left = SIZE_MAX) {
        for (;;) {
            const Bytes sent = bytesIn(engine.output().bytes());
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
                const View piece = bytes.first(std::min(chunk, bytes.size()));
                feed(engine, log, piece);
                bytes = bytes.subspan(piece.size());
            }
        }
    }

    bool dataFlows(size_t size = 20000) {
        static const std::string all = tv::test::randomText(50000, "abcd");
        const std::string text = all.substr(0, size);
        server.received.clear();
        engine.input().clear();
        engine.sendApplicationData(log, tv::test::bytesIn(text));
        pump();
        server.send(23, tv::test::bytesIn(text));
        pump();
        return server.received == text && tv::test::textOf(engine.input().bytes()) == text;
    }

    std::string logText() {
        std::string text;
        log.getText(text);
        return text + serverWords;
    }

    TestEnvironment environment;
    Server server;
    _tvLogger log;
    tv::test::Recorded recorded{log};
    TlsProtocol engine;
    std::string serverWords;  // why it gave up
    size_t delivered = 0;
};

}  // namespace tv::tls::test
