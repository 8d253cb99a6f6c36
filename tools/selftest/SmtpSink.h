// A mail server on loopback that takes every message, plain or over TLS, and keeps what it got.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "tests/fixtures/LoopbackServer.h"

namespace selftest {

enum class Security { Plain, ImplicitTls13, StartTls12 };

class SmtpSink {
public:
    explicit SmtpSink(Security security)
        : security_(security), server_([this](Connection& peer) { serve(peer); }) {}

    int port() const { return server_.port(); }  // 0: loopback is not to be had
    // What came so far: messages with their envelopes, and what went wrong.
    std::vector<std::string> messages() const { return copyOf(messages_); }
    std::vector<std::string> complaints() const { return copyOf(complaints_); }

private:
    using Connection = tv::test::LoopbackServer::Connection;

    void serve(Connection& peer);
    std::vector<std::string> copyOf(const std::vector<std::string>& list) const {
        const std::lock_guard guard(lock_);
        return list;
    }

    const Security security_;
    mutable std::mutex lock_;
    std::vector<std::string> messages_, complaints_;
    tv::test::LoopbackServer server_;  // last: its threads use the others
};

}  // namespace selftest
