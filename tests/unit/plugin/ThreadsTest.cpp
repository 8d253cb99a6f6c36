// All exports at the same time from several threads, against a real server: whatever meets
// whatever, no message goes out in part and what the sends report is what the server has.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "emailsending.h"
#include "platform/SysDialog.h"
#include "plugin/PluginState.h"
#include "tests/fixtures/LoopbackServer.h"

namespace tv {
namespace {

size_t countOf(std::string_view wanted, std::string_view text) {
    size_t count = 0;
    for (size_t at = text.find(wanted); at != std::string_view::npos; ++count) {
        at = text.find(wanted, at + wanted.size());
    }
    return count;
}

// To its end, which is somewhere as long as the text is still there.
void readError() {
    const std::string text = ::getLastError();
    EXPECT_TRUE(text.empty() || text.ends_with('\n') || text.ends_with('.')) << text;
}

// A mail server that takes every message.
class Sink {
public:
    struct Message {
        std::vector<std::string> recipients;
        std::string header;
    };

    void serve(test::LoopbackServer::Connection& peer) {
        Message message;
        std::string input;
        bool inText = false;
        peer.send("220 sink\r\n");
        for (bool open = true; open;) {
            const std::string end = inText ? "\r\n.\r\n" : "\r\n";
            const size_t at = input.find(end);
            if (at == std::string::npos) {
                const std::string more = peer.receive();
                open = !more.empty();
                input += more;
                continue;
            }
            const std::string line = input.substr(0, at);
            input.erase(0, at + end.size());
            if (std::exchange(inText, false)) {
                message.header = line.substr(0, line.find("\r\n\r\n"));
                const std::lock_guard guard(lock);
                messages.push_back(std::exchange(message, {}));
            } else if (line.starts_with("MAIL")) {
                message = {};
            } else if (line.starts_with("RCPT")) {
                message.recipients.push_back(line);
            }
            inText = line == "DATA";
            open = line != "QUIT";
            peer.send(line.starts_with("EHLO") ? "250-sink\r\n250 PIPELINING\r\n"
                      : inText                 ? "354 go ahead\r\n"
                                               : "250 ok\r\n");
        }
    }

    std::mutex lock;
    std::vector<Message> messages;
};

// Its timers call the library again.
class BusyDialog final : public plat::SysDialog {
public:
    BusyDialog() = default;
    ~BusyDialog() override { plat::replaceSysDialog(before_); }
    BusyDialog(const BusyDialog&) = delete;
    BusyDialog& operator=(const BusyDialog&) = delete;

    void showError(const char*, std::string_view) override {
        ++shown;
        ::setSubject("from the box");
    }

    std::atomic<int> shown = 0;

private:
    plat::SysDialog* before_ = plat::replaceSysDialog(this);
};

TEST(Threads, AllExportsAtTheSameTime) {
    constexpr int kRounds = 30;
    Sink sink;
    const test::LoopbackServer server([&](auto& peer) { sink.serve(peer); });
    BusyDialog dialog;
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
            ::setSmtpUser("user");
            ::setSmtpPassword("secret");
            ::setSmtpAuthMethod("NONE");
            ::setLoginDomain("OFFICE");
            ::setDefaultNtlmVersion(2);
            ::setUseSSL(0);
            ::setStartTls(0);
            ::setNoopCount(1);
            ::setLogging();
            ::setVerboseLogging();
            ::setFromAddress("Anna <anna@from.test>");
            ::setRecipient("another@to.test");
            ::setSubject("one of many");
            ::setBody("<p>{LOGO}</p>");
            ::setAttachment("no such file");
            ::ResetEmail();
            readError();
        }
    };
    std::vector<std::thread> senders, setters;
    for (const bool mayStartAnew : {true, false, false}) {
        senders.emplace_back(sendAll, mayStartAnew);
    }
    setters.emplace_back(setAll);
    setters.emplace_back(setAll);
    for (std::thread& thread : senders) {
        thread.join();
    }
    done = true;
    for (std::thread& thread : setters) {
        thread.join();
    }
    PluginState::replaceInstance(before);
    std::remove("emailsending.log");

    EXPECT_GT(dialog.shown, 0);
    EXPECT_GT(accepted, 0);
    EXPECT_EQ(sink.messages.size(), static_cast<size_t>(accepted));
    for (const Sink::Message& message : sink.messages) {
        const auto named =
            std::count_if(message.recipients.begin(), message.recipients.end(),
                          [](const std::string& line) { return line.ends_with("@to.test>"); });
        EXPECT_EQ(countOf("@to.test", message.header), static_cast<size_t>(named))
            << message.header;
    }
}

}  // namespace
}  // namespace tv
