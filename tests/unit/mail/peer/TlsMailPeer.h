// A mail server behind OpenSSL, in memory.
#pragma once

#include <string>
#include <string_view>
#include <utility>

#include "tests/fixtures/FakeNet.h"
#include "tests/unit/net/tls/peer/OpenSslPeer.h"

namespace tv::test {

// A good server that takes one message. Speaks TLS from the first byte or after STARTTLS.
class TlsMailPeer final : public FakePeer {
public:
    TlsMailPeer(SSL_CTX* context, bool implicit)
        : ssl_(SSL_new(context), SSL_free),
          toSsl_(BIO_new(BIO_s_mem())),
          fromSsl_(BIO_new(BIO_s_mem())),
          secure_(implicit) {
        SSL_set_bio(ssl_.get(), toSsl_, fromSsl_);
        SSL_set_accept_state(ssl_.get());
        reply_ = "220 mail.test ready\r\n";
    }

    void onConnect(std::string& out) override { pass(out); }
    void onBytes(std::string_view bytes, std::string& out) override {
        if (secure_) {
            BIO_write(toSsl_, bytes.data(), static_cast<int>(bytes.size()));
        } else {
            take(bytes);
        }
        pass(out);
    }
    Ending ending() const override { return closing_ ? Ending::Eof : Ending::None; }
    bool hasMessage() const { return hasMessage_; }

    bool refusesEarly = false;  // with a word and a good-bye in one segment
    std::string behindMessage;  // on the wire, behind the reply to the message

private:
    void pass(std::string& out) {
        if (!secure_) {
            out += std::exchange(reply_, {});
            secure_ = startsTls_;
            return;
        }
        char bytes[4096];
        int size;
        if (!SSL_is_init_finished(ssl_.get())) SSL_do_handshake(ssl_.get());
        while ((size = SSL_read(ssl_.get(), bytes, sizeof bytes)) > 0)
            take({bytes, static_cast<size_t>(size)});
        if (SSL_get_shutdown(ssl_.get()) & SSL_RECEIVED_SHUTDOWN) closing_ = true;
        if (SSL_is_init_finished(ssl_.get()) && !reply_.empty()) {
            SSL_write(ssl_.get(), reply_.data(), static_cast<int>(reply_.size()));
            reply_.clear();
            if (refusesEarly && inMessage_ && !text_.empty())
                closing_ = SSL_shutdown(ssl_.get()) == 0;
        }
        while ((size = BIO_read(fromSsl_, bytes, sizeof bytes)) > 0)
            out.append(bytes, static_cast<size_t>(size));
        if (hasMessage_) out += std::exchange(behindMessage, {});
        ERR_clear_error();
    }

    void take(std::string_view bytes) {
        text_ += bytes;
        for (size_t end; (end = text_.find(inMessage_ ? "\r\n.\r\n" : "\r\n")) != text_.npos;) {
            const std::string line = text_.substr(0, end);
            text_.erase(0, end + (inMessage_ ? 5 : 2));
            reply_ += answer(line);
        }
        if (refusesEarly && inMessage_ && !text_.empty()) reply_ = "552 too big\r\n";
    }

    std::string answer(const std::string& line) {
        if (std::exchange(inMessage_, line == "DATA" && !inMessage_)) {
            hasMessage_ = true;
            return "250 taken\r\n";
        }
        if (inMessage_) return "354 go ahead\r\n";
        if (line == "STARTTLS") startsTls_ = true;
        if (line.starts_with("EHLO")) return "250-mail.test\r\n250 STARTTLS\r\n";
        return line.starts_with("MAIL") ? "250 sender ok\r\n" : "250 ok\r\n";
    }

    std::unique_ptr<SSL, decltype(&SSL_free)> ssl_;
    BIO* toSsl_;    // owned by the SSL
    BIO* fromSsl_;  // owned by the SSL
    bool secure_;
    bool startsTls_ = false;
    bool inMessage_ = false;
    bool hasMessage_ = false;
    bool closing_ = false;
    std::string text_;   // from the client, in clear, unfinished
    std::string reply_;  // not yet sent
};

}  // namespace tv::test
