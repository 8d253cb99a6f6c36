// All exports at the same time from several threads, against a real server: whatever meets
// whatever, no message goes out in part and what the sends report is what the server has.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "emailsending.h"
#include "plugin/PluginState.h"
#include "tests/fixtures/LoopbackServer.h"
#include "tests/unit/plugin/FakeDialog.h"

namespace tv {
namespace {

// A mail server that takes every message.
struct Sink {
    struct Message {
        std::string envelope, text;
    };

    void serve(test::LoopbackServer::Connection& peer) {
        Message message;
        peer.send("220 sink\r\n");
        for (std::string line = "EHLO"; !line.empty() && line != "QUIT\r\n";) {
            line = peer.receiveUntil("\r\n");
            if (line.starts_with("MAIL")) message = {};
            message.envelope += line;
            if (line == "DATA\r\n") {
                peer.send("354 go ahead\r\n");
                message.text = peer.receiveUntil("\r\n.\r\n");
                const std::lock_guard guard(lock);
                messages.push_back(message);
            }
            peer.send("250 ok\r\n");
        }
    }

    std::mutex lock;
    std::vector<Message> messages;
};

size_t named(std::string_view text) {
    constexpr std::string_view kDomain = "@to.test";
    size_t count = 0;
    for (size_t at = text.find(kDomain); at != std::string_view::npos; ++count)
        at = text.find(kDomain, at + 1);
    return count;
}

// To its end, which is somewhere as long as the text is still there.
void readError() {
    const std::string text = ::getLastError();
    EXPECT_TRUE(text.empty() || text.ends_with('\n') || text.ends_with('.')) << text;
}

TEST(Threads, allExportsAtTheSameTime) {
    constexpr int kRounds = 30;
    Sink sink;
    const test::LoopbackServer server([&](auto& peer) { sink.serve(peer); });
    FakeDialog dialog;
    dialog.whileOpen = [] { ::setSubject("from the box"); };
    PluginState state;
    PluginState* const before = PluginState::replaceInstance(&state);
    std::atomic<int> accepted = 0;
    std::atomic<bool> done = false;

    const auto startAnew = [&] {  // the port first: nobody else's server is to be met
        ::Initialise();
        ::setSmtpPort(server.port());
        ::setSmtpHost("localhost");
    };
    startAnew();
    const auto sendAll = [&](bool mayStartAnew) {
        for (int i = 0; i < kRounds; ++i) {
            if (mayStartAnew && i % 3 == 0) startAnew();
            ::setRecipient("to@to.test");
            ::setCC("cc@to.test");
            ::setBCC("blind@blind.test");
            ::setLogo("");
            accepted += ::szBrisko();
            readError();
        }
    };
    const auto setAll = [&] {
        while (!done) {
            ::setSmtpPort(server.port());
            for (const auto set : {::setSmtpUser, ::setSmtpPassword, ::setSubject, ::setLoginDomain,
                                   ::setBody, ::setAttachment}) {
                set("<p>{LOGO}</p>");
            }
            ::setSmtpAuthMethod("NONE");
            ::setDefaultNtlmVersion(2);
            ::setUseSSL(0);
            ::setStartTls(0);
            ::setNoopCount(1);
            ::setLogging();
            ::setVerboseLogging();
            ::setFromAddress("Anna <anna@from.test>");
            ::setRecipient("another@to.test");
            ::ResetEmail();
            readError();
        }
    };
    std::thread setters[] = {std::thread(setAll), std::thread(setAll)};
    std::thread senders[] = {std::thread(sendAll, true), std::thread(sendAll, false),
                             std::thread(sendAll, false)};
    for (std::thread& thread : senders) {
        thread.join();
    }
    done = true;
    for (std::thread& thread : setters) {
        thread.join();
    }
    PluginState::replaceInstance(before);
    std::remove("emailsending.log");

    EXPECT_FALSE(dialog.texts.empty());
    EXPECT_GT(accepted, 0);
    EXPECT_EQ(sink.messages.size(), static_cast<size_t>(accepted));
    for (const auto& [envelope, text] : sink.messages) {
        EXPECT_EQ(named(text.substr(0, text.find("\r\n\r\n"))), named(envelope)) << text;
    }
}

}  // namespace
}  // namespace tv
